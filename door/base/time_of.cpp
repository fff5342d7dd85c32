#include "door/base/time_of.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <ctime>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

#include "door/base/failure.h"
#include "refhost/log_entry.h"

namespace achost {
namespace {

using Time = std::int64_t;

std::tm local_of(std::time_t time) {
  std::tm fields{};
  localtime_r(&time, &fields);
  return fields;
}

// The beginning of today, or of a day so many days later.
Time day_of(std::time_t now, int later) {
  auto fields = local_of(now);
  fields.tm_hour = fields.tm_min = fields.tm_sec = 0;
  fields.tm_mday += later;
  fields.tm_isdst = -1;
  return static_cast<Time>(std::mktime(&fields)) * 1000;
}

// more: as many days later, of a day.
std::optional<Time> word(const std::string& text, std::time_t now, int more) {
  constexpr std::pair<std::string_view, int> kDays[] = {{"yesterday", -1}, {"today", 0}, {"tomorrow", 1}};
  for (const auto& [name, later] : kDays) {
    if (text == name) {
      return day_of(now, later + more);
    }
  }
  return std::nullopt;
}

// Takes ".006" out of the text, where the milliseconds stand of a time with a date.
Time take_milliseconds(std::string& text) {
  constexpr std::size_t kPoint = 19;
  constexpr std::size_t kDigits = 3;
  const auto digits = std::string_view(text).substr(std::min(kPoint + 1, text.size()), kDigits);
  if (text.size() <= kPoint || text[kPoint] != '.' || digits.size() < kDigits ||
      digits.find_first_not_of("0123456789") != digits.npos) {
    return 0;
  }
  Time milliseconds = 0;
  std::from_chars(digits.data(), digits.data() + kDigits, milliseconds);
  text.erase(kPoint, 1 + kDigits);
  return milliseconds;
}

// A date, a time of today, or both; more: as many days later, of a date alone.
std::optional<Time> moment(std::string text, std::time_t now, int more) {
  const Time milliseconds = take_milliseconds(text);
  for (const char* format :
       {"%Y-%m-%d", "%Y-%m-%d %H:%M", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M:%S%z", "%H:%M", "%H:%M:%S"}) {
    std::tm fields{};
    if (std::strstr(format, "%Y") == nullptr) {
      fields = local_of(now);
      fields.tm_sec = 0;
    }
    fields.tm_isdst = -1;
    const char* const end = strptime(text.c_str(), format, &fields);
    if (end == nullptr || *end != '\0') {
      continue;
    }
    const long offset = fields.tm_gmtoff;
    const int day = fields.tm_mday;
    const bool has_zone = std::strstr(format, "%z") != nullptr;
    const std::time_t seconds = has_zone ? timegm(&fields) - offset : std::mktime(&fields);
    if (fields.tm_mday != day) {
      continue;  // there is no such day
    }
    const bool is_date = std::string_view(format) == "%Y-%m-%d";
    return is_date ? day_of(seconds, more) : static_cast<Time>(seconds) * 1000 + milliseconds;
  }
  return std::nullopt;
}

std::optional<std::int64_t> seconds_in(std::string_view unit) {
  struct Unit {
    std::int64_t seconds;
    std::array<std::string_view, 5> names;
  };
  static constexpr Unit kUnits[] = {{1, {"s", "sec", "second", "seconds", "secs"}},
                                    {60, {"m", "min", "minute", "minutes", "mins"}},
                                    {3600, {"h", "hr", "hour", "hours", "hrs"}},
                                    {86400, {"d", "day", "days", "d", "d"}},
                                    {604800, {"w", "week", "weeks", "w", "w"}}};
  for (const auto& [seconds, names] : kUnits) {
    for (const auto name : names) {
      if (unit == name) {
        return seconds;
      }
    }
  }
  return std::nullopt;
}

std::string_view without_spaces(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  return text;
}

// "1h 30min": pairs of a number and a unit.
std::optional<std::int64_t> duration(std::string_view text) {
  constexpr std::int64_t kMost = 100'000LL * 86400;
  std::int64_t seconds = 0;
  text = without_spaces(text);
  if (text.empty()) {
    return std::nullopt;
  }
  for (; !text.empty(); text = without_spaces(text)) {
    std::int64_t number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failure != std::errc() || number < 0 || number > kMost) {
      return std::nullopt;
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    text = without_spaces(text);
    const std::size_t length = std::min(text.find_first_of(" 0123456789"), text.size());
    const auto unit = seconds_in(text.substr(0, length));
    if (!unit.has_value() || (seconds += number * *unit) > kMost) {
      return std::nullopt;
    }
    text.remove_prefix(length);
  }
  return seconds;
}

std::optional<Time> before_now(const std::string& text, Time now) {
  if (text == "now") {
    return now;
  }
  constexpr std::string_view kAgo = " ago";
  std::optional<std::int64_t> seconds;
  if (text.size() > 1 && text[0] == '-') {
    seconds = duration(std::string_view(text).substr(1));
  } else if (text.ends_with(kAgo)) {
    seconds = duration(std::string_view(text).substr(0, text.size() - kAgo.size()));
  }
  return seconds.has_value() ? std::optional(now - *seconds * 1000) : std::nullopt;
}

std::int64_t time_with(const std::string& text, std::chrono::system_clock::time_point now, int more) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count();
  if (const auto time = word(text, seconds, more)) {
    return *time;
  }
  if (const auto time = moment(text, seconds, more)) {
    return *time;
  }
  if (const auto time = before_now(text, milliseconds)) {
    return *time;
  }
  throw Failure(kUsage, "\"" + refhost::log::escape(text) +
                            "\" is no time: give 2026-01-31, \"2026-01-31 08:30\", \"2026-01-31 08:30:00\", 08:30, "
                            "today, yesterday, -1h, \"2 days ago\" or 2026-01-31T08:30:00+01:00");
}

}  // namespace

std::int64_t time_of(const std::string& text, std::chrono::system_clock::time_point now) {
  return time_with(text, now, 0);
}

std::int64_t end_of(const std::string& text, std::chrono::system_clock::time_point now) {
  return time_with(text, now, 1);
}

std::int64_t seconds_of(const std::string& text) {
  const bool is_number = !text.empty() && text.find_first_not_of("0123456789") == text.npos;
  if (const auto seconds = duration(is_number ? text + "s" : text)) {
    return *seconds;
  }
  throw Failure(kUsage, "\"" + refhost::log::escape(text) + "\" is no length of time: give " + kLengthsHelp);
}

}  // namespace achost
