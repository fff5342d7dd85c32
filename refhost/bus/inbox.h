// A bounded queue of messages with one consumer.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "ac/message.h"
#include "refhost/bus_view.h"

namespace refhost {

// Any thread may put; one thread takes.
class Inbox {
 public:
  using Messages = std::deque<std::unique_ptr<ac::Message>>;

  // name: whose queue, for the log. bound: how many messages may wait.
  Inbox(std::string name, std::size_t bound);
  ~Inbox();
  Inbox(const Inbox&) = delete;
  Inbox& operator=(const Inbox&) = delete;

  // Append a message. At the bound it is dropped instead: counted, and logged once when a burst of drops begins and
  // once, with the number, when the queue takes messages again.
  void put(std::unique_ptr<ac::Message> message);

  // Wait for messages and move all of them into `messages`, which must be empty. False when the inbox is closed and
  // nothing is left.
  bool take_all(Messages& messages);

  // Wait for a message until the deadline; null when there is none by then.
  std::unique_ptr<ac::Message> take_one(std::chrono::steady_clock::time_point deadline);

  // No more messages will be put; take_all() hands out what waits and then returns false.
  void close();

  const std::string& name() const { return name_; }

  // How it stands now. Any thread may call.
  QueueState state() const;

 private:
  // Both are called with mutex_ released: the log may be slow.
  void report_full(const std::string& type) const;
  void report_end_of_burst(std::uint64_t dropped) const;

  const std::string name_;
  const std::size_t bound_;
  mutable std::mutex mutex_;  // guards everything below
  std::condition_variable filled_;
  Messages waiting_;
  bool closed_ = false;
  std::uint64_t dropped_in_burst_ = 0;
  std::uint64_t dropped_ = 0;
};

}  // namespace refhost
