#include "odd_messages.h"

#include <array>
#include <cstdint>
#include <limits>
#include <string_view>

namespace plugincheck {
namespace {

// Not "usb_port_enabled": who believes it would switch off the disks of the machine that the check runs on.
constexpr auto kNames = std::to_array<std::string_view>(
    {"module",  "param",         "value",     "previous_value", "sys_config", "type",         "user_id",
     "save",    "registration",  "user_card", "error",          "gpio",       "active",       "at",
     "details", "previous_time", "door",      "state",          "",           "no such field"});

constexpr auto kTexts = std::to_array<std::string_view>(
    {"", "uhf", "card", "region", "transmit_power", "operation_mode", "read_interval", "probe_interval", "host", "0",
     "1", "-1", "99999999999999999999", "%s%n%d", "\xff\xfe\x80", "'; DROP TABLE audit_logs; --", "\n\r\t"});

std::int64_t odd_number(uhfsim::Random& random) {
  constexpr auto kNumbers = std::to_array<std::int64_t>(
      {0, 1, -1, 2, 255, 256, 65536, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max(),
       std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()});
  return kNumbers.at(random.below(kNumbers.size()));
}

std::string odd_text(uhfsim::Random& random) {
  constexpr std::size_t kLong = 100'000;
  const auto which = random.below(kTexts.size() + 2);
  if (which < kTexts.size()) {
    return std::string(kTexts.at(which));
  }
  return which == kTexts.size() ? std::string(kLong, 'x') : std::string("a\0b", 3);
}

void add_odd_field(ac::Message& message, uhfsim::Random& random) {
  const std::string name(kNames.at(random.below(kNames.size())));
  switch (random.below(3)) {
    case 0:
      return message.add_int(name, static_cast<int>(odd_number(random)));
    case 1:
      return message.add_int64(name, odd_number(random));
    default:
      return message.add_string(name, odd_text(random));
  }
}

}  // namespace

std::unique_ptr<ac::Message> odd_message(const std::string& type, uhfsim::Random& random) {
  constexpr std::size_t kMostFields = 12;
  auto message = std::make_unique<ac::Message>(type);
  for (auto left = random.below(kMostFields); left > 0; --left) {
    add_odd_field(*message, random);
  }
  return message;
}

}  // namespace plugincheck
