#include "door/base/local_time.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace achost {

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

}  // namespace achost
