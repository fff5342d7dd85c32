#include "door/base/local_time.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <string_view>

namespace achost {
namespace {

bool is_three_digits(std::string_view text, int& number) {
  constexpr std::size_t kDigits = 3;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  return text.size() == kDigits && result.ptr == text.data() + kDigits && number >= 0;
}

}  // namespace

std::string local_time(std::chrono::system_clock::time_point time, std::string format) {
  const auto since_epoch = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
  std::array<char, 64> buffer{};
  if (const auto place = format.find("%L"); place != std::string::npos) {
    std::snprintf(buffer.data(), buffer.size(), "%03d", static_cast<int>(since_epoch.count() % 1000));
    format.replace(place, 2, buffer.data());
  }
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm local{};
  localtime_r(&seconds, &local);
  std::strftime(buffer.data(), buffer.size(), format.c_str(), &local);
  return buffer.data();
}

// strftime leaves out the zone's colon, which ISO 8601 wants beside a time that has colons.
std::string iso_time(std::chrono::system_clock::time_point time) {
  std::string text = local_time(time, "%Y-%m-%dT%H:%M:%S.%L%z");
  return text.insert(text.size() - 2, ":");
}

std::string with_zone(const std::string& text) {
  std::tm fields{};
  fields.tm_isdst = -1;
  const char* const end = strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &fields);
  int milliseconds = 0;
  if (end == nullptr || (*end != '\0' && (*end != '.' || !is_three_digits(end + 1, milliseconds)))) {
    return text;
  }
  return iso_time(std::chrono::system_clock::from_time_t(std::mktime(&fields)) +
                  std::chrono::milliseconds(milliseconds));
}

}  // namespace achost
