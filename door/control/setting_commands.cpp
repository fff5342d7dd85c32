#include "door/control/setting_commands.h"

#include <algorithm>
#include <map>
#include <string>

#include "door/base/assignment.h"
#include "door/base/failure.h"

namespace achost {
namespace {

using Awaited = std::vector<SettingsChanges::Awaited>;
using Type = ControlField::Type;

// With what is in force in place of the value, and why, where they differ.
Json setting_json(const refhost::SettingsStore& store, const Awaited& awaited, const refhost::Setting& setting) {
  Json result = {{"section", setting.section},
                 {"key", setting.key},
                 {"value", store.get(setting.section, setting.key).value()},
                 {"overridden", store.is_overridden(setting.section, setting.key)}};
  const auto found = std::ranges::find_if(
      awaited, [&](const auto& one) { return one.section == setting.section && one.key == setting.key; });
  if (found != awaited.end()) {
    result["in_force"] = found->in_force;
    result["reason"] = found->reason;
  }
  return result;
}

// What can be set to what, for a program that lets people choose.
Json schema_json(const refhost::Setting& setting) {
  using refhost::SettingType;
  static const std::map<SettingType, const char*> kTypes = {
      {SettingType::integer, "integer"},       {SettingType::choice, "choice"}, {SettingType::flag, "flag"},
      {SettingType::int_ranges, "int_ranges"}, {SettingType::text, "text"},     {SettingType::path, "path"}};
  Json result = {{"section", setting.section},
                 {"key", setting.key},
                 {"type", kTypes.at(setting.type)},
                 {"default", setting.default_value},
                 {"allowed", setting.allowed()},
                 {"unit", setting.unit},
                 {"live", setting.live},
                 {"help", setting.help}};
  if (setting.type == SettingType::choice) {
    result["choices"] = setting.choices;
  } else if (setting.type == SettingType::integer || setting.type == SettingType::int_ranges) {
    result["min"] = setting.min;
    result["max"] = setting.max;
  }
  return result;
}

Json list_schema(Stores& stores) {
  Json list = Json::array();
  for (const auto& setting : stores.settings().schema().settings()) {
    list.push_back(schema_json(setting));
  }
  return {{"settings", list}};
}

Json list_settings(Stores& stores) {
  const auto& store = stores.settings();
  const auto awaited = stores.awaited();
  Json list = Json::array();
  for (const auto& setting : store.schema().settings()) {
    list.push_back(setting_json(store, awaited, setting));
  }
  return {{"settings", list}};
}

const refhost::Setting& setting_of(Stores& stores, const Json& request) {
  return stores.settings().schema().at(request["section"].get<std::string>(), request["key"].get<std::string>());
}

// Throws Failure when any of them does not come into force.
void change_settings(Stores& stores, const std::vector<refhost::SettingValue>& wanted) {
  std::string told;
  for (const auto& awaited : stores.change(wanted)) {
    told += (told.empty() ? "" : "; ") + text_of(awaited);
  }
  if (!told.empty()) {
    throw Failure(kNotInForce, told + "; the host tries again until it is");
  }
}

// The answer has what the store holds once the plug-in has heard of the change: it may have written a bound back.
Json set_setting(Stores& stores, const Json& request) {
  const auto& setting = setting_of(stores, request);
  change_settings(stores, {{setting.section, setting.key, stored_form(setting, request["value"].get<std::string>())}});
  return setting_json(stores.settings(), stores.awaited(), setting);
}

Json import_settings(Stores& stores, const Json& request) {
  std::vector<Assignment> wanted;
  for (const auto& one : request["settings"]) {
    const auto text = one.get<std::string>();
    const auto equals = text.find('=');
    if (equals == std::string::npos) {
      throw RequestError("\"" + text + "\" is no setting: give SECTION.KEY=VALUE");
    }
    wanted.push_back(checked_assignment(text.substr(0, equals), text.substr(equals + 1)));
  }
  change_settings(stores, wanted);
  return {{"count", wanted.size()}};
}

// Those that are not the default, as they are stored: what a run has instead is no part of a copy.
Json export_settings(Stores& stores) {
  using refhost::SettingsStore;
  const SettingsStore store(stores.directory(), SettingsStore::Access::read_only);
  Json list = Json::array();
  for (const auto& setting : store.schema().settings()) {
    if (const auto value = store.get(setting.section, setting.key).value(); value != setting.default_value) {
      list.push_back({{"section", setting.section}, {"key", setting.key}, {"value", value}});
    }
  }
  return {{"settings", list}};
}

}  // namespace

std::vector<ControlCommand> setting_commands(Stores& stores) {
  return {
      {"config_list", {}, [&stores](const Json&, ControlStream&) { return list_settings(stores); }},
      {"config_schema", {}, [&stores](const Json&, ControlStream&) { return list_schema(stores); }},
      {"config_get",
       {{"section"}, {"key"}},
       [&stores](const Json& request, ControlStream&) {
         return setting_json(stores.settings(), stores.awaited(), setting_of(stores, request));
       }},
      {.name = "config_set",
       .fields = {{"section"}, {"key"}, {"value"}},
       .run = [&stores](const Json& request, ControlStream&) { return set_setting(stores, request); },
       .changes = true},
      {.name = "config_import",
       .fields = {{"settings", Type::texts}},
       .run = [&stores](const Json& request, ControlStream&) { return import_settings(stores, request); },
       .changes = true},
      {"config_export", {}, [&stores](const Json&, ControlStream&) { return export_settings(stores); }},
  };
}

}  // namespace achost
