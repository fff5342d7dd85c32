// A bounded queue of messages with one consumer.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ac/message.h"
#include "refhost/bus_view.h"

namespace refhost {

// Any thread may put; one thread takes.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding): the room keeps the taker off the lines of the senders
class Inbox {
 public:
  // name: whose queue, for the log. bound: how many messages may wait.
  Inbox(std::string name, std::size_t bound);
  ~Inbox();
  Inbox(const Inbox&) = delete;
  Inbox& operator=(const Inbox&) = delete;

  // Append a message. At the bound it is dropped instead: counted, and logged once when a burst of drops begins and
  // once, with the number, when the queue takes messages again.
  void put(std::unique_ptr<ac::Message> message);

  // Wait for a message, until the deadline if there is one; null when there is none by then, and when the inbox is
  // closed and nothing is left.
  std::unique_ptr<ac::Message> take(std::optional<std::chrono::steady_clock::time_point> deadline = std::nullopt);

  // No more messages will be put.
  void close();

  const std::string& name() const { return name_; }

  // Whether a message waits, as far as that can be seen without waiting: who holds the lock has something to do.
  bool has_waiting() const;

  // How it stands now. Any thread may call.
  QueueState state() const;

 private:
  using Messages = std::vector<std::unique_ptr<ac::Message>>;

  // Move all that wait to the taker; false when take() has nothing to give.
  bool take_all(std::optional<std::chrono::steady_clock::time_point> deadline);

  // Both are called with mutex_ released: the log may be slow.
  void report_full(const std::string& type) const;
  void report_end_of_burst(std::uint64_t dropped) const;

  const std::string name_;
  const std::size_t bound_;

  // Used by the thread that takes: all that waited when it looked last, so that the lock is taken once for many.
  Messages taken_;
  std::size_t next_ = 0;  // of taken_

  // On cache lines of its own: the senders write here while the taker goes through what it took.
  alignas(64) mutable std::mutex mutex_;  // guards everything below
  std::condition_variable filled_;
  Messages waiting_;
  bool closed_ = false;
  std::uint64_t dropped_in_burst_ = 0;
  std::uint64_t dropped_ = 0;
};

}  // namespace refhost
