#include "door/cli/csv_cell.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <string_view>

namespace achost {
namespace {

bool is_number(const std::string& text) {
  double number = 0;
  const std::size_t sign = text.starts_with('+') || text.starts_with('-') ? 1 : 0;
  const auto result = std::from_chars(text.data() + sign, text.data() + text.size(), number);
  return result.ec == std::errc() && result.ptr == text.data() + text.size() &&
         std::isdigit(static_cast<unsigned char>(text[sign])) != 0;
}

// A spreadsheet takes a cell that begins like this for a formula, and runs it. Behind an apostrophe it is a text. One
// of the text's own gets another, so that a reader takes the first away and has the text.
bool is_formula(const std::string& text) {
  return !text.empty() && std::string_view("=+-@\t\r\n'").find(text[0]) != std::string_view::npos && !is_number(text);
}

bool separates(char c) { return c == ',' || c == '"' || c == '\r' || c == '\n'; }

}  // namespace

void append_cell(std::string& text, const std::string& content) {
  const std::string_view apostrophe = is_formula(content) ? "'" : "";
  if (std::ranges::none_of(content, separates)) {
    text += apostrophe;
    text += content;
    return;
  }
  text += '"';
  text += apostrophe;
  for (const char c : content) {
    text.append(c == '"' ? 2 : 1, c);
  }
  text += '"';
}

}  // namespace achost
