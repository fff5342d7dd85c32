#include "daemon/config_command.h"

#include <cerrno>
#include <cstring>

#include "daemon/assignment.h"
#include "daemon/failure.h"
#include "daemon/printer.h"
#include "daemon/settings_table.h"
#include "daemon/state_directory.h"
#include "refhost/instance_lock.h"
#include "refhost/settings_store.h"

namespace achost {
namespace {

using refhost::SettingsStore;

void print(const std::string& text) {
  // A reader that has gone (`| head`) has seen enough.
  if (const int reason = write_output(text); reason != 0 && reason != EPIPE) {
    throw Failure(kFailed, std::string("cannot write to standard output: ") + std::strerror(reason));
  }
}

// The setting by [SECTION] KEY, the first `words` of the command line.
const refhost::Setting& named(const std::vector<std::string>& words, std::size_t count) {
  const std::string section = count == 2 ? words[0] : kDefaultSection;
  return refhost::SettingsSchema::builtin().at(section, words[count - 1]);
}

}  // namespace

void list_settings(const std::string& state, bool json) {
  const SettingsStore store(state_directory(state), SettingsStore::Access::read_only);
  print(json ? settings_as_json(store) : settings_as_table(store));
}

void get_setting(const std::string& state, const std::vector<std::string>& name) {
  const auto& setting = named(name, name.size());
  const SettingsStore store(state_directory(state), SettingsStore::Access::read_only);
  print(store.get(setting.section, setting.key).value() + "\n");
}

void set_setting(const std::string& state, const std::vector<std::string>& words) {
  const auto& setting = named(words, words.size() - 1);
  setting.check(words.back());
  const auto directory = state_directory(state);
  const refhost::InstanceLock lock(directory);
  SettingsStore store(directory, SettingsStore::Access::read_write);
  store.set(setting.section, setting.key, words.back());
  print(store.get(setting.section, setting.key).value() + "\n");
}

}  // namespace achost
