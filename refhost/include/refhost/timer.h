// Something that happens later, unless it is put off.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "refhost/work.h"

namespace refhost {

// Calls a function at an instant, on a thread of its own. Any thread may call, but that one must not destroy it.
class Timer {
 public:
  using Clock = std::chrono::steady_clock;

  // name: of the thread. on_due: called once for each start() that was not put off, and again a little later when it
  // throws std::bad_alloc; it may find that the reason for it has gone meanwhile.
  Timer(std::string name, std::function<void()> on_due);

  // Without calling the function again; waits for a call that runs.
  ~Timer();

  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  // Call the function at that instant, in place of the one before.
  void start(Clock::time_point due);

 private:
  void run(const std::string& name);
  bool call();
  bool is_due();

  const std::function<void()> on_due_;
  std::mutex mutex_;  // guards everything below
  std::condition_variable changed_;
  std::optional<Clock::time_point> due_;
  bool missed_ = false;  // an instant has passed, and was put off before the thread has come to look
  bool ending_ = false;
  Work work_;  // a call is a step; the thread's
  std::thread thread_;
};

}  // namespace refhost
