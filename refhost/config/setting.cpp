// What values a setting allows.
#include <strings.h>

#include <algorithm>

#include "config/int_ranges.h"
#include "config/number.h"
#include "refhost/settings_schema.h"

namespace refhost {
namespace {

bool is_within(std::int64_t number, const Setting& setting) { return number >= setting.min && number <= setting.max; }

bool is_printable(const std::string& text) {
  return std::none_of(text.begin(), text.end(),
                      [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

bool integer_allowed(const Setting& setting, const std::string& value) {
  const auto number = parse_number(value);
  return number.has_value() && is_within(*number, setting);
}

bool choice_allowed(const Setting& setting, const std::string& value) {
  return std::any_of(setting.choices.begin(), setting.choices.end(), [&](const std::string& choice) {
    return choice.size() == value.size() && strcasecmp(choice.c_str(), value.c_str()) == 0;
  });
}

bool flag_allowed(const Setting&, const std::string& value) { return value == "0" || value == "1"; }

bool int_ranges_allowed(const Setting& setting, const std::string& value) {
  const auto numbers = parse_int_ranges(value);
  return numbers.has_value() &&
         std::all_of(numbers->begin(), numbers->end(), [&](int number) { return is_within(number, setting); });
}

bool text_allowed(const Setting&, const std::string& value) { return is_printable(value); }

bool path_allowed(const Setting&, const std::string& value) { return value.starts_with('/') && is_printable(value); }

std::string range_text(const Setting& setting) {
  return std::to_string(setting.min) + " to " + std::to_string(setting.max);
}

std::string choices_text(const Setting& setting) {
  std::string text = setting.choices.front();
  for (std::size_t i = 1; i < setting.choices.size(); ++i) {
    text += (i + 1 == setting.choices.size() ? " or " : ", ") + setting.choices[i];
  }
  return text;
}

std::string int_ranges_text(const Setting& setting) {
  return "ranges of " + range_text(setting) + ", such as 0-10;26-51";
}

struct TypeRules {
  SettingType type;
  bool (*allows)(const Setting&, const std::string&);
  std::string (*describes)(const Setting&);
};

constexpr TypeRules kRules[] = {
    {SettingType::integer, integer_allowed, range_text},
    {SettingType::choice, choice_allowed, choices_text},
    {SettingType::flag, flag_allowed, [](const Setting&) -> std::string { return "0 or 1"; }},
    {SettingType::int_ranges, int_ranges_allowed, int_ranges_text},
    {SettingType::text, text_allowed, [](const Setting&) -> std::string { return "text"; }},
    {SettingType::path, path_allowed, [](const Setting&) -> std::string { return "an absolute path"; }},
};

const TypeRules& rules_of(SettingType type) {
  return *std::find_if(std::begin(kRules), std::end(kRules), [&](const TypeRules& r) { return r.type == type; });
}

}  // namespace

std::string Setting::allowed() const { return rules_of(type).describes(*this); }

void Setting::check(const std::string& value) const {
  if (!rules_of(type).allows(*this, value)) {
    throw SettingError("setting " + key + " cannot be \"" + value + "\": allowed is " + allowed() +
                       (unit.empty() ? "" : " (" + unit + ")"));
  }
}

}  // namespace refhost
