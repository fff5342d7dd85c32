#include <algorithm>

#include "ac/watchdog.h"
#include "refhost/watchdog.h"

namespace refhost {

WatchdogTable& WatchdogTable::instance() {
  static WatchdogTable& table = *new WatchdogTable;
  return table;
}

void WatchdogTable::set_limit(std::chrono::milliseconds limit) {
  const std::lock_guard lock(mutex_);
  limit_ = limit;
}

std::chrono::milliseconds WatchdogTable::limit() {
  const std::lock_guard lock(mutex_);
  return limit_;
}

void WatchdogTable::keep_alive(std::string_view name, Clock::time_point now) {
  const std::lock_guard lock(mutex_);
  if (const auto known = last_seen_.find(name); known != last_seen_.end()) {
    known->second = now;
  } else {
    last_seen_.emplace(name, now);
  }
}

std::optional<WatchdogTable::Late> WatchdogTable::check(Clock::time_point now) {
  const std::lock_guard lock(mutex_);
  const bool was_stopped = last_check_.has_value() && now - *last_check_ > limit_;
  last_check_ = now;
  if (was_stopped) {
    for (auto& [name, seen] : last_seen_) {
      seen = now;
    }
  }
  const auto latest = std::min_element(last_seen_.begin(), last_seen_.end(),
                                       [](const auto& a, const auto& b) { return a.second < b.second; });
  if (latest == last_seen_.end() || now - latest->second <= limit_) {
    return std::nullopt;
  }
  return Late{latest->first, std::chrono::duration_cast<std::chrono::milliseconds>(now - latest->second)};
}

std::vector<WatchdogTable::Late> WatchdogTable::silences(Clock::time_point now) {
  const std::lock_guard lock(mutex_);
  std::vector<Late> result;
  for (const auto& [name, seen] : last_seen_) {
    result.push_back({name, std::chrono::duration_cast<std::chrono::milliseconds>(now - seen)});
  }
  return result;
}

}  // namespace refhost

namespace ac::watchdog {

void keep_alive(const std::string& name) {
  refhost::WatchdogTable::instance().keep_alive(name, refhost::WatchdogTable::Clock::now());
}

}  // namespace ac::watchdog
