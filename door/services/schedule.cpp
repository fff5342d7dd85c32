#include "door/services/schedule.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

namespace achost {
namespace {

using std::chrono::days;
using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::system_clock;
using Time = Schedules::Time;

constexpr std::array kDayNames = {"mon", "tue", "wed", "thu", "fri", "sat", "sun"};

std::tm local_fields(Time time) {
  const std::time_t seconds = system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(time));
  std::tm fields{};
  localtime_r(&seconds, &fields);
  return fields;
}

LocalDay day_of(const std::tm& fields) {
  return std::chrono::year(fields.tm_year + 1900) / (fields.tm_mon + 1) / fields.tm_mday;
}

// One of the moments at which the wall clock shows that, or would.
Time moment(LocalDay day, int minute) {
  const std::chrono::year_month_day date(day);
  std::tm fields{};
  fields.tm_year = static_cast<int>(date.year()) - 1900;
  fields.tm_mon = static_cast<int>(static_cast<unsigned>(date.month())) - 1;
  fields.tm_mday = static_cast<int>(static_cast<unsigned>(date.day()));
  fields.tm_hour = minute / 60;
  fields.tm_min = minute % 60;
  fields.tm_isdst = -1;
  return system_clock::from_time_t(std::mktime(&fields));
}

// Clocks are changed by less.
constexpr hours kLongestChange{3};

bool clocks_change(Time begin, Time end) { return local_fields(begin).tm_gmtoff != local_fields(end).tm_gmtoff; }

bool is_over_midnight(const Window& window) { return window.to <= window.from; }

}  // namespace

const Schedule* Schedules::find(std::string_view name) const {
  const auto found = std::ranges::lower_bound(all, name, {}, &Schedule::name);
  return found == all.end() || found->name != name ? nullptr : &*found;
}

bool Schedules::begins_on(const Window& window, LocalDay day) const {
  if (std::ranges::binary_search(holidays, day, {}, &Holiday::day)) {
    return (window.days & kHolidays) != 0;
  }
  return (window.days >> (std::chrono::weekday(day).iso_encoding() - 1U) & 1U) != 0;
}

bool Schedules::contains(const Schedule& schedule, Time time) const {
  const auto fields = local_fields(time);
  const LocalDay today = day_of(fields);
  const int minute = fields.tm_hour * 60 + fields.tm_min;
  return schedule.is_right && std::ranges::any_of(schedule.windows, [&](const Window& window) {
           if (!is_over_midnight(window)) {
             return window.from <= minute && minute < window.to && begins_on(window, today);
           }
           return (window.from <= minute && begins_on(window, today)) ||
                  (minute < window.to && begins_on(window, today - days(1)));
         });
}

// By the minute: for the hours in which clocks are changed.
std::optional<Time> Schedules::first_within(const Schedule& schedule, Time begin, Time end) const {
  for (auto time = std::chrono::ceil<minutes>(begin); time <= end; time += minutes(1)) {
    if (contains(schedule, time)) {
      return time;
    }
  }
  return std::nullopt;
}

std::optional<Time> Schedules::next_begin(const Schedule& schedule, Time after) const {
  constexpr int kDaysAhead = 400;
  if (clocks_change(after, after + kLongestChange)) {
    if (const auto soon = first_within(schedule, after, after + kLongestChange)) {
      return soon;
    }
  }
  const LocalDay today = day_of(local_fields(after));
  std::optional<Time> best;
  for (int ahead = 0; ahead < kDaysAhead && !best.has_value(); ++ahead) {
    for (const auto& window : schedule.windows) {
      const LocalDay day = today + days(ahead);
      if (!begins_on(window, day)) {
        continue;
      }
      const auto near = moment(day, window.from);
      const auto begin = clocks_change(near - kLongestChange, near + kLongestChange)
                             ? first_within(schedule, std::max(near - hours(1), after), near + kLongestChange)
                             : std::optional(near);
      if (begin.has_value() && *begin > after && contains(schedule, *begin)) {
        best = std::min(*begin, best.value_or(*begin));
      }
    }
  }
  return best;
}

std::string text_of_days(Days set) {
  std::string text;
  const auto has = [set](std::size_t day) { return day < kDayNames.size() && (set >> day & 1U) != 0; };
  const auto add = [&text](const std::string& more) { text += (text.empty() ? "" : " ") + more; };
  for (std::size_t day = 0; day < kDayNames.size(); ++day) {
    std::size_t last = day;
    for (; has(day) && has(last + 1); ++last) {
    }
    if (last >= day + 2) {
      add(std::string(kDayNames.at(day)) + "-" + kDayNames.at(last));
      day = last;
    } else if (has(day)) {
      add(kDayNames.at(day));
    }
  }
  if ((set & kHolidays) != 0) {
    add("holiday");
  }
  return text;
}

std::string text_of_minute(int minute) {
  std::array<char, 32> buffer{};
  std::snprintf(buffer.data(), buffer.size(), "%02d:%02d", minute / 60, minute % 60);
  return buffer.data();
}

std::string text_of(const Window& window) {
  return text_of_days(window.days) + " " + text_of_minute(window.from) + "-" + text_of_minute(window.to);
}

std::string text_of(LocalDay day) {
  const std::chrono::year_month_day date(day);
  std::array<char, 48> buffer{};
  std::snprintf(buffer.data(), buffer.size(), "%04d-%02u-%02u", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
  return buffer.data();
}

}  // namespace achost
