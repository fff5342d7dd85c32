#include "refhost/work.h"

#include <utility>

namespace refhost {

Work::Work(std::string name, int patience, std::function<bool()> waits)
    : name_(std::move(name)), patience_(patience), waits_(std::move(waits)) {
  const std::lock_guard lock(WorkTable::instance().mutex_);
  WorkTable::instance().all_.push_back(this);
}

Work::~Work() {
  const std::lock_guard lock(WorkTable::instance().mutex_);
  std::erase(WorkTable::instance().all_, this);
}

WorkTable& WorkTable::instance() {
  static WorkTable& table = *new WorkTable;
  return table;
}

std::optional<WatchdogTable::Late> WorkTable::check(Clock::time_point now, std::chrono::milliseconds limit) {
  const std::lock_guard lock(mutex_);
  const bool was_stopped = last_check_.has_value() && now - *last_check_ > limit;
  last_check_ = now;
  for (Work* const work : all_) {
    const auto step = work->step_.load(std::memory_order_relaxed);
    const bool is_due = step % 2 == 1 || (work->waits_ && work->waits_());
    if (!is_due) {
      work->due_since_.reset();
    } else if (step != work->seen_step_ || was_stopped || !work->due_since_.has_value()) {
      work->due_since_ = now;
    }
    work->seen_step_ = step;
    const auto length = now - work->due_since_.value_or(now);
    if (length > limit * work->patience_) {
      return WatchdogTable::Late{work->name_, std::chrono::duration_cast<std::chrono::milliseconds>(length)};
    }
  }
  return std::nullopt;
}

}  // namespace refhost
