#include "refhost/timer.h"

#include <pthread.h>

#include <new>
#include <utility>

#include "ac/util.h"

namespace refhost {
namespace {

// How soon a call is tried again that lacked memory.
constexpr std::chrono::milliseconds kAgain(50);

}  // namespace

Timer::Timer(std::string name, std::function<void()> on_due)
    : on_due_(std::move(on_due)),
      work_(name, 1, [this] { return is_due(); }),
      thread_([this, name = std::move(name)] { run(name); }) {}

Timer::~Timer() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

void Timer::start(Clock::time_point due) {
  {
    const std::lock_guard lock(mutex_);
    missed_ = missed_ || (due_.has_value() && *due_ <= Clock::now());
    due_ = due;
  }
  changed_.notify_one();
}

// What there is no memory for now is tried again.
bool Timer::call() {
  const Work::Step step(work_);
  try {
    on_due_();
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

// As far as that can be seen without waiting: who holds the lock has something to do.
bool Timer::is_due() {
  const std::unique_lock lock(mutex_, std::try_to_lock);
  return !lock.owns_lock() || missed_ || (due_.has_value() && *due_ <= Clock::now());
}

void Timer::run(const std::string& name) {
  ac::util::set_thread_name(name, pthread_self());
  std::unique_lock lock(mutex_);
  while (!ending_) {
    missed_ = false;
    if (!due_.has_value()) {
      changed_.wait(lock);
    } else if (const auto due = *due_; Clock::now() < due) {
      changed_.wait_until(lock, due);
    } else {
      due_.reset();
      lock.unlock();
      const bool is_done = call();
      lock.lock();
      if (!is_done && !due_.has_value()) {
        due_ = Clock::now() + kAgain;
      }
    }
  }
}

}  // namespace refhost
