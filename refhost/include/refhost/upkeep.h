// What can wait, in small steps beside the work.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "refhost/work.h"

namespace refhost {

// Calls a function again and again, on a thread of its own: soon after while there is more to do, else now and then.
class Upkeep {
 public:
  // name: of the thread. step: does a little, and tells whether there is more to do. rest: until it is called for the
  // first time, when a start is over, and again when there was no more to do, or when it has thrown; that is logged,
  // but not the same twice in a row.
  Upkeep(std::string name, std::function<bool()> step, std::chrono::milliseconds rest = std::chrono::seconds(1));

  // Waits for a step that runs.
  ~Upkeep();

  Upkeep(const Upkeep&) = delete;
  Upkeep& operator=(const Upkeep&) = delete;

 private:
  void run(const std::string& name);
  bool take_step();
  void say(const char* failure) noexcept;

  const std::function<bool()> step_;
  const std::chrono::milliseconds rest_;
  std::string last_failure_;  // the thread's
  std::mutex mutex_;          // guards ending_
  std::condition_variable ended_;
  bool ending_ = false;
  Work work_;  // a step of it is a step; the thread's
  std::thread thread_;
};

}  // namespace refhost
