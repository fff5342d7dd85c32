// A thread that is woken at an instant.
#pragma once

#include <chrono>

namespace achost {

// Whoever sets it wakes nobody by that: the kernel does, when it is time. So it takes no thread's turn from those who
// set it and have something to go on with at once.
class AlarmClock {
 public:
  // Throws std::system_error.
  AlarmClock();
  ~AlarmClock();
  AlarmClock(const AlarmClock&) = delete;
  AlarmClock& operator=(const AlarmClock&) = delete;

  // It rings so long from now, in place of when it would have. Any thread may call; it waits for nothing.
  void set(std::chrono::nanoseconds from_now);

  // Wait until it rings; at once when it has since the last time.
  void wait();

 private:
  int timer_;
};

}  // namespace achost
