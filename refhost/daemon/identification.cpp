#include "daemon/identification.h"

#include <array>
#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

namespace achost {
namespace {

// Of "4294967295 (0xffffffff)", a card of the usual 32 bits: up to there the columns stand below one another.
constexpr std::size_t kCardWidth = 23;

// The local time as strftime writes it, with the milliseconds in place of "%L" (which strftime does not have).
std::string local_time(std::chrono::system_clock::time_point time, std::string format) {
  const auto since_epoch = std::chrono::floor<std::chrono::milliseconds>(time.time_since_epoch());
  std::array<char, 64> buffer{};
  std::snprintf(buffer.data(), buffer.size(), "%03d", static_cast<int>(since_epoch.count() % 1000));
  format.replace(format.find("%L"), 2, buffer.data());
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm local{};
  localtime_r(&seconds, &local);
  std::strftime(buffer.data(), buffer.size(), format.c_str(), &local);
  return buffer.data();
}

// The zone as "+01:00"; strftime leaves out the colon, which ISO 8601 wants beside a time that has colons.
std::string with_colon(std::string time) { return time.insert(time.size() - 2, ":"); }

std::string hexadecimal(std::uint64_t number) {
  std::array<char, 24> buffer{};
  std::snprintf(buffer.data(), buffer.size(), "0x%" PRIx64, number);
  return buffer.data();
}

}  // namespace

Identification Identification::from(const ac::Message& message, std::chrono::system_clock::time_point time) {
  Identification result;
  result.time = time;
  std::int64_t value = 0;
  message.get_int64("value", &value);
  result.card = static_cast<std::uint64_t>(value);
  message.get_int64("device_id", &result.device_id);
  message.get_string("uuid", &result.uuid);
  return result;
}

std::string Identification::line(bool colour) const {
  const std::string number = std::to_string(card);
  const std::string hex = " (" + hexadecimal(card) + ")";
  const std::size_t width = number.size() + hex.size();
  return local_time(time, "%H:%M:%S.%L") + "  card " + (colour ? "\x1b[1;32m" + number + "\x1b[0m" : number) + hex +
         std::string(width < kCardWidth ? kCardWidth - width : 0, ' ') + "  device " + std::to_string(device_id) +
         "  " + uuid;
}

std::string Identification::json() const {
  const nlohmann::ordered_json object = {{"event", "identification"},
                                         {"time", with_colon(local_time(time, "%Y-%m-%dT%H:%M:%S.%L%z"))},
                                         {"card", card},
                                         {"card_hex", hexadecimal(card)},
                                         {"device_id", device_id},
                                         {"uuid", uuid}};
  return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace achost
