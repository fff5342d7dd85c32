// One setting's value in memory.
#pragma once

#include <atomic>
#include <cstdint>
#include <limits>
#include <mutex>
#include <optional>
#include <string>

#include "config/number.h"
#include "refhost/settings_schema.h"

namespace refhost {

// Any thread may read; writers take turns by the store's lock.
class Slot {
 public:
  explicit Slot(const Setting& setting) : setting_(setting) { put(setting.default_value); }

  const Setting& setting() const { return setting_; }

  std::optional<int> number() const noexcept {
    const std::int64_t number = number_.load();
    return number == kNoNumber ? std::nullopt : std::optional(static_cast<int>(number));
  }

  std::string text() const {
    const std::lock_guard lock(mutex_);
    return text_;
  }

  void put(const std::string& value) {
    const auto number = parse_number(value);
    const bool fits =
        number.has_value() && *number >= std::numeric_limits<int>::min() && *number <= std::numeric_limits<int>::max();
    const std::lock_guard lock(mutex_);
    text_ = value;
    number_.store(fits ? *number : kNoNumber);
  }

  // Used with the store's lock held.
  bool overridden = false;              // its value is not the file's
  std::optional<std::string> at_start;  // what a run began with

 private:
  static constexpr std::int64_t kNoNumber = std::numeric_limits<std::int64_t>::min();

  const Setting& setting_;
  std::atomic<std::int64_t> number_{kNoNumber};
  mutable std::mutex mutex_;  // guards text_
  std::string text_;
};

}  // namespace refhost
