#include "cli/text_table.h"

#include <algorithm>

namespace achost {
namespace {

// Bytes that continue a character are no character of their own.
std::size_t width_of(const std::string& text) {
  return static_cast<std::size_t>(std::ranges::count_if(text, [](char c) { return (c & 0xC0) != 0x80; }));
}

}  // namespace

std::string aligned(const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], width_of(row[i]));
    }
  }
  std::string text;
  for (const auto& row : rows) {
    for (std::size_t i = 0; i + 1 < row.size(); ++i) {
      text += row[i] + std::string(widths[i] - width_of(row[i]) + 2, ' ');
    }
    text += row.back() + "\n";
  }
  return text;
}

}  // namespace achost
