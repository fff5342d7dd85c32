#include "bus/inbox.h"

#include <utility>

#include "bus/counters.h"
#include "refhost/log.h"

namespace refhost {

namespace {

// Messages whose room stays after a burst.
constexpr std::size_t kRoomKept = 1024;

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

bool Inbox::has_waiting() const {
  const std::unique_lock lock(mutex_, std::try_to_lock);
  return !lock.owns_lock() || !waiting_.empty();
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

std::unique_ptr<ac::Message> Inbox::take(std::optional<std::chrono::steady_clock::time_point> deadline) {
  if (next_ == taken_.size() && !take_all(deadline)) {
    return nullptr;
  }
  return std::move(taken_[next_++]);
}

bool Inbox::take_all(std::optional<std::chrono::steady_clock::time_point> deadline) {
  taken_.clear();
  next_ = 0;
  if (taken_.capacity() > kRoomKept) {
    taken_ = Messages();
  }
  std::unique_lock lock(mutex_);
  const auto filled = [this] { return !waiting_.empty() || closed_; };
  if (deadline.has_value()) {
    filled_.wait_until(lock, *deadline, filled);
  } else {
    filled_.wait(lock, filled);
  }
  taken_.swap(waiting_);
  return !taken_.empty();
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
