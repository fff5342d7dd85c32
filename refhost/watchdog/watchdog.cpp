#include "refhost/watchdog.h"

#include <pthread.h>

#include <new>
#include <utility>

#include "ac/util.h"
#include "refhost/work.h"

namespace refhost {

Watchdog::Watchdog(WatchdogTable& table, std::chrono::milliseconds period,
                   std::function<void(const WatchdogTable::Late&)> on_late, std::function<void()> on_good)
    : table_(table), period_(period), on_late_(std::move(on_late)), on_good_(std::move(on_good)), thread_([this] {
        run();
      }) {}

Watchdog::~Watchdog() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  ended_.notify_one();
  thread_.join();
}

void Watchdog::run() {
  ac::util::set_thread_name("watchdog", pthread_self());
  std::unique_lock lock(mutex_);
  while (!ended_.wait_for(lock, period_, [this] { return ending_; })) {
    const auto now = WatchdogTable::Clock::now();
    auto late = table_.check(now);
    if (!late.has_value()) {
      late = WorkTable::instance().check(now, table_.limit());
    }
    if (late.has_value()) {
      on_late_(*late);
      return;
    }
    try {
      on_good_();
    } catch (const std::bad_alloc&) {  // it is called again soon
    }
  }
}

}  // namespace refhost
