#include "door/control/control_events.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <new>
#include <set>
#include <sstream>

#include "door/base/local_time.h"
#include "refhost/bus_view.h"

namespace achost {
namespace {

// Lines on their way from the bus to the client.
class Backlog {
 public:
  // On any thread of the host.
  void put(std::string line) {
    const std::lock_guard lock(mutex_);
    if (bytes_ + line.size() > kBound) {
      ++left_out_;
    } else {
      bytes_ += line.size();
      lines_.push_back(std::move(line));
      filled_.notify_one();
    }
  }

  // One is missing.
  void leave_out() {
    const std::lock_guard lock(mutex_);
    ++left_out_;
  }

  // What has come, after a little while at most.
  std::deque<std::string> take() {
    std::unique_lock lock(mutex_);
    filled_.wait_for(lock, kLook, [this] { return !lines_.empty(); });
    auto lines = std::exchange(lines_, {});
    bytes_ = 0;
    if (left_out_ != 0) {
      lines.push_back(line_of({{"left_out", std::exchange(left_out_, 0)}}));
    }
    return lines;
  }

 private:
  static constexpr std::size_t kBound = 1 << 20;          // bytes; as much again may be on its way to the client
  static constexpr std::chrono::milliseconds kLook{200};  // how often the client's end is looked for

  std::mutex mutex_;  // guards all below
  std::condition_variable filled_;
  std::deque<std::string> lines_;
  std::size_t bytes_ = 0;  // of them
  std::uint64_t left_out_ = 0;
};

std::set<std::string> types_of(const Json& request) {
  std::set<std::string> types;
  std::istringstream list(request.value("types", ""));
  for (std::string type; std::getline(list, type, ',');) {
    types.insert(type);
  }
  return types;
}

}  // namespace

Json follow_events(const Json& request, ControlStream& stream) {
  const auto types = types_of(request);
  Backlog backlog;
  const refhost::BusTap tap([&](const ac::Message& message) {
    if (!types.empty() && !types.contains(message.type())) {
      return;
    }
    try {
      backlog.put(
          line_of({{"time", iso_time(std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now()))},
                   {"message", message.type()},
                   {"fields", refhost::fields_of(message)}}));
    } catch (const std::bad_alloc&) {  // whoever sends the message must not lose it for one who looks on
      backlog.leave_out();
    }
  });
  stream.send({{"following", true}});
  while (!stream.is_over()) {
    for (const std::string& line : backlog.take()) {
      if (!stream.send_lines(line)) {
        return Json::object();
      }
    }
  }
  return Json::object();
}

}  // namespace achost
