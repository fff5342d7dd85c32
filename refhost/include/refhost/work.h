// Supervision of threads by what they do.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "refhost/watchdog.h"

namespace refhost {

// What a thread is at: a step that has begun must end, and what waits for the thread must be begun. A thread that
// nothing waits for is never late, so none needs a timer to say that it is alive. It is known to the process's
// WorkTable while it lives.
class Work {
 public:
  // name: for a person. patience: how many of the watchdog's limits a step may take, and its beginning. waits: whether
  // something is there to be begun; called by the table's check, it must not wait for the thread.
  explicit Work(std::string name, int patience = 1, std::function<bool()> waits = nullptr);
  ~Work();
  Work(const Work&) = delete;
  Work& operator=(const Work&) = delete;

  // To be called in turn, by the thread that works; each is one write to memory.
  void begin() noexcept { step_.store(step_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed); }
  void end() noexcept { begin(); }

  // For the time of a block.
  class Step {
   public:
    explicit Step(Work& work) : work_(work) { work_.begin(); }
    ~Step() { work_.end(); }
    Step(const Step&) = delete;
    Step& operator=(const Step&) = delete;

   private:
    Work& work_;
  };

 private:
  friend class WorkTable;

  const std::string name_;
  const int patience_;
  const std::function<bool()> waits_;
  std::atomic<std::uint64_t> step_ = 0;  // odd while one runs; written by the thread that works
  // The table's, with its lock held.
  std::uint64_t seen_step_ = 0;
  std::optional<WatchdogTable::Clock::time_point> due_since_;  // that step, or what waits; nothing: neither
};

// All work of the process. The time is a parameter. Any thread may call.
class WorkTable {
 public:
  using Clock = WatchdogTable::Clock;

  // The one that each Work joins. Never destroyed.
  static WorkTable& instance();

  // A step that has been seen, or waited for, for more than the limit, times its patience. To be called regularly: a
  // check that itself comes more than a limit after the one before it finds that the whole process was stopped, and
  // begins anew.
  std::optional<WatchdogTable::Late> check(Clock::time_point now, std::chrono::milliseconds limit);

 private:
  friend class Work;

  std::mutex mutex_;  // guards everything below, and what each work keeps for it
  std::vector<Work*> all_;
  std::optional<Clock::time_point> last_check_;
};

}  // namespace refhost
