// Supervision of the threads that say keep_alive.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace refhost {

// Who said when that he is alive. The time is a parameter, so it knows no clock. Any thread may call.
class WatchdogTable {
 public:
  using Clock = std::chrono::steady_clock;

  struct Late {
    std::string name;
    std::chrono::milliseconds silence;  // since its last call
  };

  static constexpr std::chrono::milliseconds kDefaultLimit{30000};

  // The table that ac::watchdog::keep_alive writes. Never destroyed.
  static WatchdogTable& instance();

  // From now on a name is late when its last call is longer ago than this.
  void set_limit(std::chrono::milliseconds limit);

  std::chrono::milliseconds limit();

  // The name is alive at that time, and expected again from now on.
  void keep_alive(std::string_view name, Clock::time_point now);

  // The name that is late for longest, if any. To be called regularly: a check that itself comes more than a limit
  // after the one before it finds that the whole process was stopped, and gives every name a fresh limit.
  std::optional<Late> check(Clock::time_point now);

  // Every name with the time since its last call, in alphabetical order.
  std::vector<Late> silences(Clock::time_point now);

 private:
  std::mutex mutex_;  // guards everything below
  std::chrono::milliseconds limit_ = kDefaultLimit;
  std::map<std::string, Clock::time_point, std::less<>> last_seen_;
  std::optional<Clock::time_point> last_check_;
};

// Checks a table and all work of the process (work.h) regularly, on a thread of its own.
class Watchdog {
 public:
  // On the checking thread, on_late is called when a name or a step of work is late, at most once, and checking ends
  // with it; on_good at each check that finds nobody late.
  Watchdog(
      WatchdogTable& table, std::chrono::milliseconds period, std::function<void(const WatchdogTable::Late&)> on_late,
      std::function<void()> on_good = [] {});

  // Ends the checking thread; not to be called on it.
  ~Watchdog();

  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

 private:
  void run();

  WatchdogTable& table_;
  const std::chrono::milliseconds period_;
  const std::function<void(const WatchdogTable::Late&)> on_late_;
  const std::function<void()> on_good_;
  std::mutex mutex_;  // guards ending_
  std::condition_variable ended_;
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace refhost
