// Waiting with an end, for what a host may never do.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace hostcheck {

// How long something may take that a host does at once; a loaded machine takes its time.
inline constexpr std::chrono::milliseconds kPatience(5000);
// How long something is given that a host must not do.
inline constexpr std::chrono::milliseconds kTemptation(40);

// What handlers have seen, for whoever waits for it. Any thread.
template <class T>
class Seen {
 public:
  void add(T item) {
    const std::lock_guard lock(mutex_);
    items_.push_back(std::move(item));
    changed_.notify_all();
  }

  // Whether so many have come.
  bool wait_for(std::size_t count, std::chrono::milliseconds patience = kPatience) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, [&] { return items_.size() >= count; });
  }

  std::vector<T> all() const {
    const std::lock_guard lock(mutex_);
    return items_;
  }

  std::size_t count() const {
    const std::lock_guard lock(mutex_);
    return items_.size();
  }

 private:
  mutable std::mutex mutex_;  // guards items_
  mutable std::condition_variable changed_;
  std::vector<T> items_;
};

// Closed until it is opened. Any thread.
class Gate {
 public:
  // Whether it was opened in that time.
  bool pass(std::chrono::milliseconds patience = 2 * kPatience) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, [this] { return is_open_; });
  }

  void open() {
    const std::lock_guard lock(mutex_);
    is_open_ = true;
    changed_.notify_all();
  }

 private:
  mutable std::mutex mutex_;  // guards is_open_
  mutable std::condition_variable changed_;
  bool is_open_ = false;
};

// How an action went that was given a thread of its own.
struct Outcome {
  bool has_ended = false;             // else its thread still hangs, and goes on alone
  std::optional<std::string> thrown;  // what it threw, in words
  bool is_well() const { return has_ended && !thrown.has_value(); }
};

// The action must own what it uses, since it may outlive the call.
Outcome outcome_of(std::function<void()> action, std::chrono::milliseconds patience = kPatience);

// What the action throws on this thread, in words; nothing when it throws nothing.
std::optional<std::string> thrown_by(const std::function<void()>& action);

// How the outcome reads behind "get_param() ": "has not returned after 8 s" or "threw: ...".
std::string words_of(const Outcome& outcome);

}  // namespace hostcheck
