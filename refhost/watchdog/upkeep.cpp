#include "refhost/upkeep.h"

#include <pthread.h>

#include <exception>
#include <new>
#include <utility>

#include "ac/util.h"
#include "refhost/log.h"

namespace refhost {
namespace {

// Between two steps, so that whoever uses the same thing comes to it.
constexpr std::chrono::milliseconds kPause(4);

// In the watchdog's limits: a step may read a big file, and nothing waits for it.
constexpr int kPatience = 20;

}  // namespace

Upkeep::Upkeep(std::string name, std::function<bool()> step, std::chrono::milliseconds rest)
    : step_(std::move(step)),
      rest_(rest),
      work_(name, kPatience),
      thread_([this, name = std::move(name)] { run(name); }) {}

Upkeep::~Upkeep() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  ended_.notify_one();
  thread_.join();
}

bool Upkeep::take_step() {
  const Work::Step step(work_);
  try {
    return step_();
  } catch (const std::bad_alloc&) {  // there will be memory again, which saying it needs too
    return false;
  } catch (const std::exception& failure) {
    say(failure.what());
    return false;
  }
}

void Upkeep::say(const char* failure) noexcept {
  try {
    if (last_failure_ != failure) {
      log::warning(failure);
      last_failure_ = failure;
    }
  } catch (const std::bad_alloc&) {  // said the next time
  }
}

void Upkeep::run(const std::string& name) {
  ac::util::set_thread_name(name, pthread_self());
  bool has_more = false;
  std::unique_lock lock(mutex_);
  while (!ended_.wait_for(lock, has_more ? kPause : rest_, [this] { return ending_; })) {
    lock.unlock();
    has_more = take_step();
    lock.lock();
  }
}

}  // namespace refhost
