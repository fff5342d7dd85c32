#include "refhost/settings_schema.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "config/edit_distance.h"
#include "settings_json.h"  // made by the build from share/settings.json

namespace refhost {
namespace {

SettingType type_of(const std::string& name) {
  static const std::map<std::string, SettingType> kTypes = {
      {"int", SettingType::integer},           {"choice", SettingType::choice}, {"bool-int", SettingType::flag},
      {"int-ranges", SettingType::int_ranges}, {"text", SettingType::text},     {"path", SettingType::path}};
  return kTypes.at(name);
}

Setting setting_of(const nlohmann::json& entry) {
  Setting setting;
  setting.section = entry.at("section");
  setting.key = entry.at("key");
  setting.type = type_of(entry.at("type"));
  setting.default_value = entry.at("default");
  setting.min = entry.value("min", std::int64_t{0});
  setting.max = entry.value("max", std::int64_t{0});
  setting.choices = entry.value("choices", std::vector<std::string>());
  setting.unit = entry.value("unit", "");
  setting.safest = entry.value("safest", "");
  setting.live = entry.at("live");
  setting.help = entry.at("help");
  if (setting.type == SettingType::choice && setting.choices.empty()) {
    throw std::invalid_argument("setting " + setting.key + " has no choices");
  }
  setting.check(setting.default_value);
  if (!setting.safest.empty()) {
    setting.check(setting.safest);
  }
  return setting;
}

std::string qualified(const Setting& setting) { return setting.section + "." + setting.key; }

}  // namespace

SettingsSchema::SettingsSchema(std::string_view json) {
  const auto document = nlohmann::json::parse(json);
  for (const auto& entry : document.at("settings")) {
    settings_.push_back(setting_of(entry));
  }
  if (settings_.empty()) {
    throw std::invalid_argument("the schema has no settings");
  }
}

const SettingsSchema& SettingsSchema::builtin() {
  static const SettingsSchema& schema = *new SettingsSchema(embedded::settings_json);
  return schema;
}

const Setting& SettingsSchema::at(std::string_view section, std::string_view key) const {
  const auto is_it = [&](const Setting& setting) { return setting.section == section && setting.key == key; };
  if (const auto found = std::find_if(settings_.begin(), settings_.end(), is_it); found != settings_.end()) {
    return *found;
  }
  const std::string wanted = std::string(section) + "." + std::string(key);
  const auto distance = [&](const Setting& setting) { return edit_distance(wanted, qualified(setting)); };
  const auto nearest = std::ranges::min_element(settings_, {}, distance);
  const std::string way_out = distance(*nearest) <= wanted.size() / 2
                                  ? "the nearest is " + nearest->key + " in section " + nearest->section
                                  : "achost config list shows all";
  throw SettingError("there is no setting " + std::string(key) + " in section " + std::string(section) + "; " +
                     way_out);
}

}  // namespace refhost
