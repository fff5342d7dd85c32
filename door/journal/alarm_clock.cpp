#include "door/journal/alarm_clock.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <system_error>

namespace achost {

AlarmClock::AlarmClock() : timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC)) {
  if (timer_ < 0) {
    throw std::system_error(errno, std::generic_category(), "timerfd_create");
  }
}

AlarmClock::~AlarmClock() { close(timer_); }

void AlarmClock::set(std::chrono::nanoseconds from_now) {
  const auto time = std::max(from_now, std::chrono::nanoseconds(1));  // 0 would be never
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
  itimerspec instant{};
  instant.it_value.tv_sec = static_cast<std::time_t>(seconds.count());
  instant.it_value.tv_nsec = static_cast<long>((time - seconds).count());
  timerfd_settime(timer_, 0, &instant, nullptr);
}

void AlarmClock::wait() {
  std::uint64_t rings = 0;
  while (read(timer_, &rings, sizeof rings) < 0 && errno == EINTR) {
  }
}

}  // namespace achost
