#include "door/cli/config_command.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "cli/paragraph.h"
#include "door/base/assignment.h"
#include "door/base/failure.h"
#include "door/base/output.h"
#include "door/base/settings_rules.h"
#include "door/base/state_directory.h"
#include "door/cli/file_content.h"
#include "door/cli/request.h"
#include "door/cli/settings_table.h"
#include "door/cli/settings_text.h"
#include "door/services/settings_changes.h"
#include "refhost/instance_lock.h"
#include "refhost/log_entry.h"
#include "refhost/settings_store.h"

namespace achost {
namespace {

using refhost::SettingsStore;

// How long a host may take to tell its plug-in of changes: it may wait for a reader that does not answer.
constexpr std::chrono::seconds kHandling(60);

// The setting by [SECTION] KEY, the first `count` words of the command line.
const refhost::Setting& named(const std::vector<std::string>& words, std::size_t count) {
  const std::string section = count == 2 ? words[0] : kDefaultSection;
  return refhost::SettingsSchema::builtin().at(section, words[count - 1]);
}

// What is overridden for the run of a host that runs there, into the store; what it has in force instead of what is
// stored, as the result.
ValuesInForce take_from_host(SettingsStore& store, const std::filesystem::path& directory) {
  ValuesInForce in_force;
  const auto answer = ask_if_running(directory, {{"command", "config_list"}});
  for (const auto& setting : answer.has_value() ? answer->at("settings") : Json::array()) {
    const auto section = setting.at("section").get<std::string>();
    const auto key = setting.at("key").get<std::string>();
    if (setting.at("overridden")) {
      store.override_for_run(section, key, setting.at("value"));
    }
    if (setting.contains("in_force")) {
      in_force[{section, key}] = {.value = setting.at("in_force"), .reason = setting.value("reason", "")};
    }
  }
  return in_force;
}

// The settings of a directory that no host runs on.
struct OwnStore {
  explicit OwnStore(const std::filesystem::path& directory)
      : lock(directory), store(directory, SettingsStore::Access::read_write) {
    store.keep(settings_rules(kUsualWatchdogLimit));
  }

  refhost::InstanceLock lock;
  SettingsStore store;
};

// The stored value, and whether a host that runs has stored it.
std::pair<std::string, bool> store_value(const std::filesystem::path& directory, const Assignment& wanted) {
  const auto& [section, key, value] = wanted;
  const auto answer = ask_if_running(
      directory, {{"command", "config_set"}, {"section", section}, {"key", key}, {"value", value}}, kHandling);
  if (answer.has_value()) {
    return {answer->at("value").get<std::string>(), true};
  }
  OwnStore own(directory);
  SettingsStore& store = own.store;
  store.set(section, key, value);
  return {store.get(section, key).value(), false};
}

void set_and_tell(const std::filesystem::path& directory, const Assignment& wanted) {
  const auto [stored, by_host] = store_value(directory, wanted);
  print(stored + "\n");
  if (stored != wanted.value) {
    std::fprintf(stderr, "achost: %s: %s was asked for, the plug-in has made it %s\n", wanted.key.c_str(),
                 wanted.value.c_str(), stored.c_str());
  } else if (by_host && !refhost::SettingsSchema::builtin().at(wanted.section, wanted.key).live) {
    std::fprintf(stderr, "achost: %s applies at the next start of the host\n", wanted.key.c_str());
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
  const auto& setting = named(words, words.size() - 1);
  const auto value = stored_form(setting, words.back());
  setting.check(value);
  return {{setting.section, setting.key, value}};
}

// In one transaction, or none.
void store_all(const std::filesystem::path& directory, const std::vector<Assignment>& settings) {
  Json texts = Json::array();
  for (const auto& [section, key, value] : settings) {
    texts.push_back(section + "." + key + "=" + value);
  }
  if (!ask_if_running(directory, {{"command", "config_import"}, {"settings", texts}}, kHandling).has_value()) {
    OwnStore(directory).store.set(settings);
  }
}

}  // namespace

void list_settings(const std::string& state, bool json) {
  const auto directory = settings_state(state);
  SettingsStore store(directory, SettingsStore::Access::read_only);
  const auto in_force = take_from_host(store, directory);
  print(json ? settings_as_json(store, in_force) : settings_as_table(store, cli::terminal_width(), in_force));
}

void document_settings() { print(settings_as_markdown(refhost::SettingsSchema::builtin())); }

void get_setting(const std::string& state, const std::vector<std::string>& name) {
  const auto& setting = named(name, name.size());
  const auto directory = settings_state(state);
  SettingsStore store(directory, SettingsStore::Access::read_only);
  const auto in_force = take_from_host(store, directory);
  print(store.get(setting.section, setting.key).value() + "\n");
  if (const auto instead = in_force.find({setting.section, setting.key}); instead != in_force.end()) {
    const auto text = text_of({.section = setting.section,
                               .key = setting.key,
                               .stored = store.get(setting.section, setting.key).value(),
                               .in_force = instead->second.value,
                               .reason = instead->second.reason});
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
  for (const auto& [section, key, value] : wanted) {
    print((section == kDefaultSection ? "" : section + ".") + key + "=" + value + "\n");
  }
}

void export_settings(const std::string& state) {
  print(settings_as_text(SettingsStore(settings_state(state), SettingsStore::Access::read_only)));
}

void import_settings(const std::string& state, const std::string& file) {
  const auto settings = parse_settings_text(content_of(file), name_of_input(file));
  store_all(writable_state(state), settings);
  print(std::to_string(settings.size()) + (settings.size() == 1 ? " setting is" : " settings are") + " stored\n");
}

}  // namespace achost
