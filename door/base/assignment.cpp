#include "door/base/assignment.h"

#include <algorithm>
#include <iterator>

#include "door/base/failure.h"
#include "refhost/radio_limits.h"
#include "refhost/settings_schema.h"

namespace achost {
namespace {

constexpr const char* kPowerUnit = "0.01 dBm";

}  // namespace

std::string stored_form(const refhost::Setting& setting, const std::string& value) {
  if (setting.unit != kPowerUnit) {
    return value;
  }
  try {
    return std::to_string(refhost::parse_power(value));
  } catch (const refhost::AmbiguousPower& failure) {
    throw refhost::SettingError("setting " + setting.key + ": " + failure.what());
  } catch (const refhost::PowerError&) {
    return value;
  }
}

Assignment checked_assignment(const std::string& name, const std::string& value) {
  const auto dot = name.find('.');
  const bool qualified = dot != std::string::npos;
  const auto& setting = refhost::SettingsSchema::builtin().at(qualified ? name.substr(0, dot) : kDefaultSection,
                                                              qualified ? name.substr(dot + 1) : name);
  const auto stored = stored_form(setting, value);
  setting.check(stored);
  return {setting.section, setting.key, stored};
}

Assignment parse_assignment(const std::string& text) {
  const auto equals = text.find('=');
  if (equals == std::string::npos || equals == 0) {
    throw Failure(kUsage, "--set " + text + ": give KEY=VALUE, for example --set read_interval=5000");
  }
  try {
    return checked_assignment(text.substr(0, equals), text.substr(equals + 1));
  } catch (const refhost::SettingError& failure) {
    throw Failure(kUsage, "--set " + text + ": " + failure.what());
  }
}

std::vector<Assignment> parse_assignments(const std::vector<std::string>& texts) {
  std::vector<Assignment> result;
  std::transform(texts.begin(), texts.end(), std::back_inserter(result), parse_assignment);
  return result;
}

}  // namespace achost
