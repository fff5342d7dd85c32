// What a reading's way takes at least: its threads, and nothing done in them.
#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>

#include "reader_end.h"

// A value that one thread hands to another.
class Queue {
 public:
  void put(int value) {
    {
      const std::lock_guard lock(mutex_);
      values_.push_back(value);
    }
    filled_.notify_one();
  }

  int take() {
    std::unique_lock lock(mutex_);
    filled_.wait(lock, [this] { return !values_.empty(); });
    const int value = values_.front();
    values_.pop_front();
    return value;
  }

 private:
  std::mutex mutex_;  // guards values_
  std::condition_variable filled_;
  std::deque<int> values_;
};

// Five threads: one that polls a reader as the plug-in does, and four that hand on what it read. They have no end, so
// the object is not to have one either.
class BareChain {
 public:
  BareChain();

  // One reading, in microseconds.
  double measure(int tag);

 private:
  void poll_reader();
  void hand_on(std::size_t from);

  ReaderEnd reader_;
  std::array<Queue, 4> queues_;  // as of dispatch, identifier, door and gpio
  Moment arrived_;
};
