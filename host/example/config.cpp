// Settings as the plug-in asks for them.
#include <charconv>
#include <cstdint>
#include <sstream>

#include "ac/config.h"
#include "ac/config_util.h"
#include "ac/exception.h"
#include "host.h"

using example::called;

namespace ac {
namespace {

// Above this a list of channels is a mistake, which must not cost the memory.
constexpr std::int64_t kLongestRange = 0x10000;

std::string text(bool flag) { return flag ? " true" : " false"; }

std::optional<int> to_int(const std::string& digits) {
  int value = 0;
  const auto* const end = digits.data() + digits.size();
  const auto result = std::from_chars(digits.data(), end, value);
  return result.ec == std::errc() && result.ptr == end ? std::optional(value) : std::nullopt;
}

// All numbers of "3-5", or of "3".
void append_range(std::vector<int>& numbers, const std::string& range) {
  const auto hyphen = range.find('-');
  const auto first = to_int(range.substr(0, hyphen));
  const auto last = hyphen == std::string::npos ? first : to_int(range.substr(hyphen + 1));
  if (!first || !last || std::int64_t{*last} - *first >= kLongestRange) {
    throw ac_exception("\"" + range + "\" is no range of numbers", true);
  }
  for (std::int64_t number = *first; number <= *last; ++number) {
    numbers.push_back(static_cast<int>(number));
  }
}

}  // namespace

bool config::get_param(const std::string& section, const std::string& key, std::string& value, bool flag) {
  called("get_param " + section + " " + key + text(flag));
  const auto stored = example::setting(section, key);
  value = stored.value_or(value);
  return stored.has_value();
}

void config::set_param(const std::string& section, const std::string& key, const std::string& value, bool flag) {
  called("set_param " + section + " " + key + " " + value + text(flag));
  example::keep_setting(section, key, value);
}

int config_util::get_int(const std::string& section, const std::string& key, bool required) {
  called("get_int " + section + " " + key + text(required));
  const auto value = to_int(example::setting(section, key).value_or(""));
  if (!value && required) {
    throw ac_exception("Missing setting " + key, true);
  }
  return value.value_or(0);
}

std::vector<int> config_util::get_int_range(const std::string& section, const std::string& key, bool required) {
  called("get_int_range " + section + " " + key + text(required));
  const auto ranges = example::setting(section, key);
  if (!ranges && required) {
    throw ac_exception("Missing setting " + key, true);
  }
  std::vector<int> numbers;
  std::istringstream rest(ranges.value_or(""));
  for (std::string range; std::getline(rest, range, ';');) {
    append_range(numbers, range);
  }
  return numbers;
}

void config_util::set_int(int value, const std::string& section, const std::string& key, bool flag) {
  called("set_int " + std::to_string(value) + " " + section + " " + key + text(flag));
  example::keep_setting(section, key, std::to_string(value));
}

}  // namespace ac
