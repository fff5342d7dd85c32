// Weekly windows of time, and the holidays on which others hold.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace achost {

// A day of the local calendar.
using LocalDay = std::chrono::sys_days;

// On which days a window begins: a bit each, Monday's is the lowest.
using Days = std::uint8_t;
inline constexpr Days kHolidays = 1U << 7U;

// In local wall time, as the clock on the wall shows it: where clocks go forward, a window within the hour that is left
// out does not come; where they go back, one within the hour that comes twice comes twice.
struct Window {
  static constexpr int kDay = 24 * 60;

  Days days = 0;  // a holiday is no day of the week
  int from = 0;   // minutes after midnight, up to 23:59
  int to = kDay;  // likewise, up to 24:00; before from: of the day after, whatever day that is

  bool operator==(const Window&) const = default;
};

struct Schedule {
  std::string name;
  std::vector<Window> windows;
  bool is_right = true;  // as it was stored; else it never holds

  bool operator==(const Schedule&) const = default;
};

struct Holiday {
  LocalDay day;
  std::string name = {};  // may be empty

  bool operator==(const Holiday&) const = default;
};

// All schedules, in the order of their names, and the holidays of them all, in that of the days.
struct Schedules {
  using Time = std::chrono::system_clock::time_point;

  std::vector<Schedule> all;
  std::vector<Holiday> holidays;
  bool holidays_are_right = true;  // as they were stored; else they count as they are

  // Null when there is none of that name.
  const Schedule* find(std::string_view name) const;

  // Whether a window of it is open then. Reads nothing but the time zone.
  bool contains(const Schedule& schedule, Time time) const;

  // When a window of it opens after that time, at which none is open; nothing within more than a year.
  std::optional<Time> next_begin(const Schedule& schedule, Time after) const;

  bool operator==(const Schedules&) const = default;

 private:
  bool begins_on(const Window& window, LocalDay day) const;
  std::optional<Time> first_within(const Schedule& schedule, Time begin, Time end) const;
};

// What a schedule may be called, and a holiday: bytes.
inline constexpr std::size_t kLongestScheduleName = 64;

// For a person: "mon-fri", "mon wed holiday"; "08:00"; "mon-fri 08:00-18:00".
std::string text_of_days(Days days);
std::string text_of_minute(int minute);
std::string text_of(const Window& window);
std::string text_of(LocalDay day);

}  // namespace achost
