#include "bus/inbox.h"

#include <utility>
#include <vector>

#include "bus/counters.h"
#include "refhost/log.h"

namespace refhost {

namespace {

// Every queue of the process, for those who look at it.
struct Queues {
  std::mutex mutex;  // guards all
  std::vector<const Inbox*> all;

  // Never destroyed: queues of plug-ins go after everything else.
  static Queues& instance() {
    static Queues& queues = *new Queues;
    return queues;
  }
};

}  // namespace

std::vector<QueueState> queue_states() {
  Queues& queues = Queues::instance();
  const std::lock_guard lock(queues.mutex);
  std::vector<QueueState> states;
  for (const Inbox* inbox : queues.all) {
    states.push_back(inbox->state());
  }
  return states;
}

Inbox::Inbox(std::string name, std::size_t bound) : name_(std::move(name)), bound_(bound) {
  const std::lock_guard lock(Queues::instance().mutex);
  Queues::instance().all.push_back(this);
}

Inbox::~Inbox() {
  const std::lock_guard lock(Queues::instance().mutex);
  std::erase(Queues::instance().all, this);
}

QueueState Inbox::state() const {
  const std::lock_guard lock(mutex_);
  return {.name = name_, .waiting = waiting_.size(), .bound = bound_, .dropped = dropped_};
}

void Inbox::put(std::unique_ptr<ac::Message> message) {
  std::unique_lock lock(mutex_);
  if (waiting_.size() >= bound_) {
    const bool burst_begins = dropped_in_burst_++ == 0;
    ++dropped_;
    lock.unlock();
    count(running_counters.dropped);
    if (burst_begins) {
      report_full(message->type());
    }
    return;
  }
  // The consumer sleeps only on an empty queue, so only the first message has to wake it.
  const bool wake = waiting_.empty();
  waiting_.push_back(std::move(message));
  const std::uint64_t dropped = std::exchange(dropped_in_burst_, 0);
  lock.unlock();
  if (wake) {
    filled_.notify_one();
  }
  if (dropped != 0) {
    report_end_of_burst(dropped);
  }
}

bool Inbox::take_all(Messages& messages) {
  std::unique_lock lock(mutex_);
  filled_.wait(lock, [this] { return !waiting_.empty() || closed_; });
  messages.swap(waiting_);
  return !messages.empty();
}

std::unique_ptr<ac::Message> Inbox::take_one(std::chrono::steady_clock::time_point deadline) {
  std::unique_lock lock(mutex_);
  if (!filled_.wait_until(lock, deadline, [this] { return !waiting_.empty(); })) {
    return nullptr;
  }
  auto message = std::move(waiting_.front());
  waiting_.pop_front();
  return message;
}

void Inbox::close() {
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
  }
  filled_.notify_one();
}

void Inbox::report_full(const std::string& type) const {
  log::warning(name_ + ": queue full (" + std::to_string(bound_) + " messages), dropping, first a \"" + type + "\"");
}

void Inbox::report_end_of_burst(std::uint64_t dropped) const {
  log::warning(name_ + ": queue takes messages again, " + std::to_string(dropped) + " dropped");
}

}  // namespace refhost
