#pragma once

#include <cstdlib>
#include <string>

#include "uhfsim/bytes.h"

namespace uhfsim::testing {

/// The bytes of a text such as "7F 00 B7"; blanks between bytes are ignored.
inline Bytes hex(const std::string& text) {
  std::string digits;
  for (const char c : text) {
    if (c != ' ') digits += c;
  }
  Bytes bytes;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::strtoul(digits.substr(i, 2).c_str(), nullptr, 16)));
  }
  return bytes;
}

inline Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

inline const Bytes kInventory = hex("7F 00 22 00 00 22 7E");
inline const Bytes kNothingRead = hex("7F 01 FF 00 01 15 16 7E");
inline const Bytes kGetPower = hex("7F 00 B7 00 00 B7 7E");
inline const Bytes kPower2600 = hex("7F 01 B7 00 02 0A 28 EC 7E");

}  // namespace uhfsim::testing
