// Schedules and holidays as a table: CSV with the columns name, days, from and to, a window or a holiday a line.
#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "door/services/schedule.h"

namespace achost {

// More is no table that a person keeps.
inline constexpr std::size_t kMostScheduleRows = 10'000;

// What a row says in each of its columns, as the table has them.
inline constexpr std::array kScheduleColumns = {"name", "days", "from", "to"};
using ScheduleCells = std::array<std::string, kScheduleColumns.size()>;

// Takes row after row.
class ScheduleRows {
 public:
  // Throws Failure (kUsage) without the line.
  void take(const ScheduleCells& row, std::size_t line);

  Schedules result() &&;

 private:
  void take_holiday(LocalDay day, const ScheduleCells& row, std::size_t line);

  std::size_t count_ = 0;
  std::map<std::string, std::vector<Window>> schedules_;
  std::map<LocalDay, std::pair<std::string, std::size_t>> holidays_;  // name, and line
};

// Throws Failure (kUsage), one line that begins with NAME:LINE, for the first thing that is wrong. Reads nothing but
// the text.
Schedules parse_schedules(std::string_view text, const std::string& name);

// parse_schedules() makes the same of it.
std::string schedules_as_text(const Schedules& schedules);

}  // namespace achost
