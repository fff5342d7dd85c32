// The line for each identification.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "ac/message.h"

namespace achost {

// What "identifier_new_card" says.
struct Identification {
  std::chrono::system_clock::time_point time;
  std::uint64_t card = 0;
  std::int64_t device_id = 0;
  std::string uuid;

  // From the message; fields that it lacks are 0 or empty.
  static Identification from(const ac::Message& message, std::chrono::system_clock::time_point time);

  // For a person, local time, without a newline: "21:30:01.123  card 305419896 (0x12345678)  device 1  UUID".
  std::string line(bool colour) const;

  // For a program: one JSON object without a newline, the time as ISO 8601 with milliseconds and zone.
  std::string json() const;
};

}  // namespace achost
