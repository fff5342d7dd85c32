#include "refhost/log_entry.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <cstdio>

namespace refhost::log {
namespace {

constexpr std::array<std::string_view, 2> kCardLines = {"Card Value: ", "Card detected! EPC: "};
constexpr int kShownCharacters = 4;

// An array and not a string: a thread that logs while it ends must not find its name destroyed.
thread_local std::array<char, 64> own_name{};

bool is_control(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

std::string escaped(char c) {
  switch (c) {
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    case '\\':
      return "\\\\";
    default:
      break;
  }
  std::array<char, 8> buffer{};
  std::snprintf(buffer.data(), buffer.size(), "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
  return buffer.data();
}

}  // namespace

std::string escape(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (const char c : text) {
    if (is_control(c) || c == '\\') {
      result += escaped(c);
    } else {
      result += c;
    }
  }
  return result;
}

std::string mask_digits(std::string_view text) {
  std::string result(text);
  int shown = 0;
  for (auto c = result.rbegin(); c != result.rend(); ++c) {
    if (std::isalnum(static_cast<unsigned char>(*c)) != 0 && ++shown > kShownCharacters) {
      *c = '*';
    }
  }
  return result;
}

std::string mask_card(std::string_view text) {
  const auto begins = [&](std::string_view line) { return text.starts_with(line); };
  const auto* const line = std::find_if(kCardLines.begin(), kCardLines.end(), begins);
  if (line == kCardLines.end()) {
    return std::string(text);
  }
  // An EPC is followed by its length in brackets, which is no part of it.
  const std::size_t end = std::min(text.find('['), text.size());
  return std::string(*line) + mask_digits(text.substr(line->size(), end - line->size())) +
         std::string(text.substr(end));
}

std::string thread_name() {
  if (own_name.front() != '\0') {
    return own_name.data();
  }
  std::array<char, 16> buffer{};
  pthread_getname_np(pthread_self(), buffer.data(), buffer.size());
  return buffer.data();
}

void remember_thread_name(std::string_view name) {
  own_name.fill('\0');
  std::copy_n(name.begin(), std::min(name.size(), own_name.size() - 1), own_name.begin());
}

}  // namespace refhost::log
