#include "refhost/radio_limits.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <optional>
#include <vector>

#include "config/int_ranges.h"

namespace refhost {
namespace {

constexpr int kMostPower = 65535;  // that two bytes hold
constexpr int kAmbiguous = 50;     // below it a number without a unit may well be meant in dBm

std::string upper(std::string_view text) {
  std::string result(text);
  std::ranges::transform(result, result.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return result;
}

// The text without its unit; nothing when it has none.
std::optional<std::string_view> without_unit(std::string_view text) {
  constexpr std::string_view kUnit = "DBM";
  if (!upper(text).ends_with(kUnit)) {
    return std::nullopt;
  }
  text.remove_suffix(kUnit.size());
  while (text.ends_with(' ')) {
    text.remove_suffix(1);
  }
  return text;
}

// Digits, perhaps with a fraction of one or two.
std::optional<double> decimal(std::string_view text) {
  const auto point = text.find('.');
  const bool is_number =
      !text.empty() && std::ranges::all_of(text, [](unsigned char c) { return std::isdigit(c) != 0 || c == '.'; });
  if (!is_number || point == 0 || (point != text.npos && (text.size() - point < 2 || text.size() - point > 3))) {
    return std::nullopt;
  }
  double number = 0;
  const auto* const end = text.data() + text.size();
  const auto [at, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && at == end ? std::optional(number) : std::nullopt;
}

// "21", "21.5".
std::string shortest(double number) {
  char text[32];
  std::snprintf(text, sizeof text, "%.6g", number);
  return text;
}

[[noreturn]] void ask_for_unit(const std::string& text, double number) {
  const bool has_fraction = text.find('.') != text.npos;
  throw AmbiguousPower("is " + text + " meant in dBm, or in hundredths of one? Write " + shortest(number) + "dBm, or " +
                       shortest(number * 100) + ", which is the same" +
                       (has_fraction ? "" : "; " + shortest(number / 100) + "dBm is the other"));
}

// A number as a range that goes on, or one that begins.
void append(std::vector<std::pair<int, int>>& ranges, int number) {
  if (!ranges.empty() && ranges.back().second + 1 == number) {
    ranges.back().second = number;
  } else {
    ranges.emplace_back(number, number);
  }
}

}  // namespace

const RadioLimit* radio_limit_of(std::string_view region) {
  const auto* const limit = std::ranges::find(kRadioLimits, upper(region), &RadioLimit::region);
  return limit == kRadioLimits.end() ? nullptr : limit;
}

std::string channels_outside(const RadioLimit& limit, std::string_view channels) {
  const auto allowed = parse_int_ranges(limit.channels).value_or(std::vector<int>());
  std::vector<std::pair<int, int>> outside;
  for (const int channel : parse_int_ranges(channels).value_or(std::vector<int>())) {
    if (std::ranges::find(allowed, channel) == allowed.end()) {
      append(outside, channel);
    }
  }
  std::string text;
  for (const auto& [first, last] : outside) {
    text += (text.empty() ? "" : ";") + std::to_string(first) + (first == last ? "" : "-" + std::to_string(last));
  }
  return text;
}

int parse_power(std::string_view text) {
  const auto in_dbm = without_unit(text);
  const auto number = decimal(in_dbm.value_or(text));
  const auto quoted = "\"" + std::string(text) + "\"";
  if (!number.has_value()) {
    throw PowerError(quoted + " is no power: write 21dBm, or 2100, which is the same in hundredths of a dBm");
  }
  const bool has_fraction = text.find('.') != text.npos;
  if (!in_dbm.has_value() && (has_fraction || (*number > 0 && *number < kAmbiguous))) {
    ask_for_unit(std::string(text), *number);
  }
  const double power = std::round(in_dbm.has_value() ? *number * 100 : *number);
  if (power > kMostPower) {
    throw PowerError(quoted + " is more than a reader can be told: at most " + power_text(kMostPower));
  }
  return static_cast<int>(power);
}

std::string power_text(int power) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f dBm", power / 100.0);
  return text;
}

}  // namespace refhost
