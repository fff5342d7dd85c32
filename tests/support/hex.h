// Bytes as hexadecimal text, for tests.
#pragma once

#include <string>
#include <vector>

// The bytes of a text of two-digit hexadecimal numbers with blanks between them.
inline std::vector<unsigned char> hex(const std::string& text) {
  std::vector<unsigned char> bytes;
  for (std::size_t at = 0; (at = text.find_first_not_of(' ', at)) != std::string::npos; at += 2) {
    bytes.push_back(static_cast<unsigned char>(std::stoul(text.substr(at, 2), nullptr, 16)));
  }
  return bytes;
}
