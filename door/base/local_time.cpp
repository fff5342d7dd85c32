#include "door/base/local_time.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string_view>

namespace achost {
namespace {

bool is_three_digits(std::string_view text, int& number) {
  constexpr std::size_t kDigits = 3;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  return text.size() == kDigits && result.ptr == text.data() + kDigits && number >= 0;
}

constexpr std::int64_t kMinute = 60;
constexpr std::int64_t kHour = 60 * kMinute;
constexpr std::int64_t kDay = 24 * kHour;

// East of UTC, in seconds.
long offset_of(std::int64_t seconds) {
  const auto time = static_cast<std::time_t>(seconds);
  std::tm local{};
  localtime_r(&time, &local);
  return local.tm_gmtoff;
}

// Of the years that have four digits. The local time is in seconds as if it were UTC.
void append_iso(std::string& text, std::int64_t local, int milliseconds, long offset) {
  constexpr std::string_view kForm = "0000-00-00T00:00:00.000+00:00";
  const std::size_t begin = text.size();
  text += kForm;
  const auto put = [&](std::size_t place, std::size_t digits, unsigned number) {
    for (std::size_t i = begin + place + digits; i-- > begin + place; number /= 10) {
      text[i] = static_cast<char>('0' + number % 10);
    }
  };
  const std::int64_t day = local / kDay;
  const std::chrono::year_month_day date{std::chrono::sys_days{std::chrono::days{day}}};
  put(0, 4, static_cast<unsigned>(static_cast<int>(date.year())));
  put(5, 2, static_cast<unsigned>(date.month()));
  put(8, 2, static_cast<unsigned>(date.day()));
  put(11, 2, static_cast<unsigned>(local % kDay / kHour));
  put(14, 2, static_cast<unsigned>(local % kHour / kMinute));
  put(17, 2, static_cast<unsigned>(local % kMinute));
  put(20, 3, static_cast<unsigned>(milliseconds));
  text[begin + 23] = offset < 0 ? '-' : '+';
  put(24, 2, static_cast<unsigned>(std::labs(offset) / kHour));
  put(27, 2, static_cast<unsigned>(std::labs(offset) % kHour / kMinute));
}

// Whether it is, wherever one is, in one of those years; ms since 1970 UTC.
bool has_four_digits(std::int64_t time) {
  constexpr std::int64_t kBegin = kDay * 1000;            // 1970-01-02, which is after 1970 began everywhere
  constexpr std::int64_t kEnd = 2'932'896 * kDay * 1000;  // 9999-12-31, which is before 10000 begins anywhere
  return time >= kBegin && time < kEnd;
}

}  // namespace

std::string local_time(Milliseconds time, std::string format) {
  const auto whole = std::chrono::floor<std::chrono::seconds>(time);
  std::array<char, 64> buffer{};
  if (const auto place = format.find("%L"); place != std::string::npos) {
    std::snprintf(buffer.data(), buffer.size(), "%03d", static_cast<int>((time - whole).count()));
    format.replace(place, 2, buffer.data());
  }
  const auto seconds = static_cast<std::time_t>(whole.time_since_epoch().count());
  std::tm local{};
  localtime_r(&seconds, &local);
  std::strftime(buffer.data(), buffer.size(), format.c_str(), &local);
  return buffer.data();
}

// strftime leaves out the zone's colon, which ISO 8601 wants beside a time that has colons.
std::string iso_time(Milliseconds time) {
  std::string text = local_time(time, "%Y-%m-%dT%H:%M:%S.%L%z");
  return text.insert(text.size() - 2, ":");
}

std::string iso_time(std::int64_t time, std::int64_t offset) {
  const std::int64_t local = time + offset * 1000;
  if (!has_four_digits(local)) {
    return iso_time(Milliseconds(std::chrono::milliseconds(time)));
  }
  std::string text;
  append_iso(text, local / 1000, static_cast<int>(local % 1000), static_cast<long>(offset));
  return text;
}

std::string with_zone(const std::string& text) {
  std::tm fields{};
  fields.tm_isdst = -1;
  const char* const end = strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &fields);
  int milliseconds = 0;
  if (end == nullptr || (*end != '\0' && (*end != '.' || !is_three_digits(end + 1, milliseconds)))) {
    return text;
  }
  return iso_time(Milliseconds(std::chrono::seconds(std::mktime(&fields)) + std::chrono::milliseconds(milliseconds)));
}

// No zone changes its offset twice in a day.
long LocalTimes::offset_at(std::int64_t seconds) {
  if (const std::int64_t day = seconds / kDay; day != day_) {
    day_ = day;
    const long offset = offset_of(day * kDay);
    offset_ = offset == offset_of((day + 1) * kDay - 1) ? std::optional(offset) : std::nullopt;
  }
  return offset_.has_value() ? *offset_ : offset_of(seconds);
}

void LocalTimes::append(std::string& text, std::int64_t time) {
  if (!has_four_digits(time)) {
    text += iso_time(Milliseconds(std::chrono::milliseconds(time)));
    return;
  }
  const long offset = offset_at(time / 1000);
  append_iso(text, time / 1000 + offset, static_cast<int>(time % 1000), offset);
}

}  // namespace achost
