// What several tests need.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "ac/message.h"
#include "ac/message_listener.h"

namespace refhost::test {

// How long a test waits for what must happen; reached only when it fails.
inline constexpr std::chrono::seconds kPatience{20};

// A directory that goes with the test.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = std::filesystem::temp_directory_path() / "refhost-test-XXXXXX";
    path_ = mkdtemp(name.data());
  }
  ~TemporaryDirectory() { std::filesystem::remove_all(path_); }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// A list that one thread fills and another waits for.
template <typename T>
class Recorder {
 public:
  void add(T value) {
    const std::lock_guard lock(mutex_);
    values_.push_back(std::move(value));
    changed_.notify_all();
  }

  // The list once it has so many entries; shorter when that does not happen.
  std::vector<T> wait_for(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, kPatience, [&] { return values_.size() >= count; });
    return values_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<T> values_;
};

// Something that happens once.
class Event {
 public:
  void set() { recorder_.add(true); }
  bool wait() { return !recorder_.wait_for(1).empty(); }

 private:
  Recorder<bool> recorder_;
};

inline ac::MessageListener on(const std::string& type, std::function<void(ac::Message*)> handler) {
  return {type, std::move(handler), false};
}

inline std::unique_ptr<ac::Message> message(const std::string& type) { return std::make_unique<ac::Message>(type); }

inline std::unique_ptr<ac::Message> numbered(const std::string& type, int number) {
  auto result = message(type);
  result->add_int("number", number);
  return result;
}

inline int number_of(const ac::Message& message) {
  int number = -1;
  message.get_int("number", &number);
  return number;
}

inline std::string content_of(const std::filesystem::path& file) {
  std::ostringstream text;
  text << std::ifstream(file).rdbuf();
  return text.str();
}

// The text of the exception that the call throws; "nothing was thrown" when it does not.
template <typename Call>
std::string failure_of(Call call) {
  try {
    call();
  } catch (const std::exception& failure) {
    return failure.what();
  }
  return "nothing was thrown";
}

}  // namespace refhost::test
