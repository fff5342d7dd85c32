#include "daemon/config_command.h"

#include <cstdio>

#include "daemon/assignment.h"
#include "daemon/output.h"
#include "daemon/request.h"
#include "daemon/settings_table.h"
#include "daemon/state_directory.h"
#include "refhost/instance_lock.h"
#include "refhost/settings_store.h"

namespace achost {
namespace {

using refhost::SettingsStore;

// The setting by [SECTION] KEY, the first `count` words of the command line.
const refhost::Setting& named(const std::vector<std::string>& words, std::size_t count) {
  const std::string section = count == 2 ? words[0] : kDefaultSection;
  return refhost::SettingsSchema::builtin().at(section, words[count - 1]);
}

// What is overridden for the run of a host that runs there.
void take_overrides(SettingsStore& store, const std::filesystem::path& directory) {
  const auto answer = ask_if_running(directory, {{"command", "config_list"}});
  if (!answer.has_value()) {
    return;
  }
  for (const auto& setting : answer->at("settings")) {
    if (setting.at("overridden")) {
      store.override_for_run(setting.at("section").get<std::string>(), setting.at("key").get<std::string>(),
                             setting.at("value"));
    }
  }
}

std::string set_alone(const std::filesystem::path& directory, const refhost::Setting& setting,
                      const std::string& value) {
  const refhost::InstanceLock lock(directory);
  SettingsStore store(directory, SettingsStore::Access::read_write);
  store.set(setting.section, setting.key, value);
  return store.get(setting.section, setting.key).value();
}

}  // namespace

void list_settings(const std::string& state, bool json) {
  const auto directory = state_directory(state);
  SettingsStore store(directory, SettingsStore::Access::read_only);
  take_overrides(store, directory);
  print(json ? settings_as_json(store) : settings_as_table(store));
}

void document_settings() { print(settings_as_markdown(refhost::SettingsSchema::builtin())); }

void get_setting(const std::string& state, const std::vector<std::string>& name) {
  const auto& setting = named(name, name.size());
  const auto directory = state_directory(state);
  SettingsStore store(directory, SettingsStore::Access::read_only);
  take_overrides(store, directory);
  print(store.get(setting.section, setting.key).value() + "\n");
}

void set_setting(const std::string& state, const std::vector<std::string>& words) {
  const auto& setting = named(words, words.size() - 1);
  const std::string& wanted = words.back();
  setting.check(wanted);
  const auto directory = state_directory(state);
  const auto answer = ask_if_running(
      directory, {{"command", "config_set"}, {"section", setting.section}, {"key", setting.key}, {"value", wanted}});
  const std::string stored =
      answer.has_value() ? answer->at("value").get<std::string>() : set_alone(directory, setting, wanted);
  print(stored + "\n");
  if (stored != wanted) {
    std::fprintf(stderr, "achost: %s: %s was asked for, the plug-in has made it %s\n", setting.key.c_str(),
                 wanted.c_str(), stored.c_str());
  } else if (answer.has_value() && !setting.live) {
    std::fprintf(stderr, "achost: %s applies at the next start of the host\n", setting.key.c_str());
  }
}

}  // namespace achost
