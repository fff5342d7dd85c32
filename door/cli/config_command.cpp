#include "door/cli/config_command.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <utility>

#include "cli/paragraph.h"
#include "door/base/assignment.h"
#include "door/base/failure.h"
#include "door/base/output.h"
#include "door/base/state_directory.h"
#include "door/cli/file_content.h"
#include "door/cli/request.h"
#include "door/cli/settings_table.h"
#include "door/cli/settings_text.h"
#include "door/services/settings_changes.h"
#include "refhost/log_entry.h"
#include "refhost/settings_schema.h"

namespace achost {
namespace {

// The setting by [SECTION] KEY, the first `count` words of the command line.
const refhost::Setting& setting_named(const std::vector<std::string>& words, std::size_t count) {
  const std::string section = count == 2 ? words[0] : kDefaultSection;
  return refhost::SettingsSchema::builtin().at(section, words[count - 1]);
}

// A setting as the owner of the stores tells it; nothing when this program does not know it.
std::optional<SettingState> state_of(const Json& told) {
  const auto& all = refhost::SettingsSchema::builtin().settings();
  const auto found = std::ranges::find_if(all, [&told](const refhost::Setting& setting) {
    return setting.section == told.at("section") && setting.key == told.at("key");
  });
  if (found == all.end()) {
    return std::nullopt;
  }
  SettingState state{.setting = *found, .value = told.at("value"), .is_overridden = told.at("overridden")};
  if (told.contains("in_force")) {
    state.in_force = {.value = told.at("in_force"), .reason = told.value("reason", "")};
  }
  return state;
}

void set_and_tell(const std::filesystem::path& directory, const Assignment& wanted) {
  const auto& [section, key, value] = wanted;
  StoreOwner owner(directory);
  const auto answer = owner.ask({{"command", "config_set"}, {"section", section}, {"key", key}, {"value", value}});
  const std::string stored = answer.at("value");
  print(stored + "\n");
  if (stored != value) {
    std::fprintf(stderr, "achost: %s: %s was asked for, the plug-in has made it %s\n", key.c_str(), value.c_str(),
                 stored.c_str());
  } else if (owner.is_daemon() && !refhost::SettingsSchema::builtin().at(section, key).live) {
    std::fprintf(stderr, "achost: %s applies at the next start of the host\n", key.c_str());
  }
}

std::vector<Assignment> assignments_of_pairs(const std::vector<std::string>& words) {
  std::vector<Assignment> wanted;
  for (const auto& word : words) {
    const auto equals = word.find('=');
    if (equals == std::string::npos) {
      throw Failure(kUsage, "\"" + word + "\" is no setting: give [SECTION.]KEY=VALUE");
    }
    wanted.push_back(checked_assignment(word.substr(0, equals), word.substr(equals + 1)));
    const Assignment& last = wanted.back();
    const auto is_same = [&](const Assignment& one) { return one.section == last.section && one.key == last.key; };
    if (std::ranges::count_if(wanted, is_same) > 1) {
      throw Failure(kUsage, last.section + "." + last.key + " is given twice");
    }
  }
  return wanted;
}

// [SECTION] KEY VALUE, or any number of [SECTION.]KEY=VALUE.
std::vector<Assignment> assignments_of(const std::vector<std::string>& words) {
  if (words.front().find('=') != std::string::npos) {
    return assignments_of_pairs(words);
  }
  if (words.size() < 2 || words.size() > 3) {
    throw Failure(kUsage, "give [SECTION] KEY VALUE, or one or more [SECTION.]KEY=VALUE");
  }
  const auto& setting = setting_named(words, words.size() - 1);
  const auto value = stored_form(setting, words.back());
  setting.check(value);
  return {{setting.section, setting.key, value}};
}

std::string assignment_line(const Assignment& one) { return one.section + "." + one.key + "=" + one.value; }

// In one transaction, or none.
void store_all(const std::filesystem::path& directory, const std::vector<Assignment>& settings) {
  Json texts = Json::array();
  for (const Assignment& one : settings) {
    texts.push_back(assignment_line(one));
  }
  StoreOwner(directory).ask({{"command", "config_import"}, {"settings", texts}});
}

}  // namespace

void list_settings(const std::string& state, bool json) {
  StoreOwner owner(settings_state(state));
  SettingStates settings;
  const auto answer = owner.ask({{"command", "config_list"}}, {}, ControlClient::kPatience);
  for (const auto& told : answer.at("settings")) {
    if (auto known = state_of(told); known.has_value()) {
      settings.push_back(std::move(*known));
    }
  }
  print(json ? settings_as_json(settings) : settings_as_table(settings, cli::terminal_width()));
}

void document_settings() { print(settings_as_markdown(refhost::SettingsSchema::builtin())); }

void get_setting(const std::string& state, const std::vector<std::string>& name) {
  const auto& setting = setting_named(name, name.size());
  StoreOwner owner(settings_state(state));
  const auto told = state_of(owner.ask({{"command", "config_get"}, {"section", setting.section}, {"key", setting.key}},
                                       {}, ControlClient::kPatience));
  print(told.value().value + "\n");
  if (told->in_force.has_value()) {
    const auto text = text_of({.section = setting.section,
                               .key = setting.key,
                               .stored = told->value,
                               .in_force = told->in_force->value,
                               .reason = told->in_force->reason});
    std::fprintf(stderr, "achost: %s\n", refhost::log::escape(text).c_str());
  }
}

void set_setting(const std::string& state, const std::vector<std::string>& words, bool force) {
  auto wanted = assignments_of(words);
  const auto directory = writable_state(state);
  if (!force && wanted.size() == 1) {
    set_and_tell(directory, wanted.front());
    return;
  }
  if (force) {
    wanted.push_back({"host", "beyond_region", "1"});
  }
  store_all(directory, wanted);
  for (const Assignment& one : wanted) {
    const auto line = assignment_line(one) + "\n";
    print(one.section == kDefaultSection ? line.substr(one.section.size() + 1) : line);
  }
}

void export_settings(const std::string& state) {
  StoreOwner owner(settings_state(state));
  std::vector<Assignment> settings;
  const auto answer = owner.ask({{"command", "config_export"}});
  for (const auto& one : answer.at("settings")) {
    settings.push_back({.section = one.at("section"), .key = one.at("key"), .value = one.at("value")});
  }
  print(settings_as_text(settings));
}

void import_settings(const std::string& state, const std::string& file) {
  const auto settings = parse_settings_text(content_of(file), name_of_input(file));
  store_all(writable_state(state), settings);
  print(std::to_string(settings.size()) + (settings.size() == 1 ? " setting is" : " settings are") + " stored\n");
}

}  // namespace achost
