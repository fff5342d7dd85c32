// The settings store: any value for any key, then another process's look at the file; and any text as a schema.
#include "input.h"
#include "refhost/log.h"
#include "refhost/settings_store.h"
#include "temporary_directory.h"

using refhost::SettingsSchema;
using refhost::SettingsStore;

namespace {

void read_schema(fuzz::Input& input) {
  try {
    const SettingsSchema schema(input.all_text());
    for (const auto& setting : schema.settings()) {
      setting.check(setting.default_value);
      setting.allowed();
    }
  } catch (const std::exception&) {  // the schema is built in: what it throws only a developer sees
  }
}

void change(fuzz::Input& input) {
  refhost::log::set_threshold(refhost::log::Level::off);
  const auto directory = fuzz::empty_directory();
  const auto& settings = SettingsSchema::builtin().settings();
  SettingsStore store(directory, SettingsStore::Access::read_write);
  for (int i = 0; i < 4 && !input.empty(); ++i) {
    const auto& setting = settings[input.below(settings.size())];
    const std::string key = input.below(8) == 0 ? input.text() : setting.key;
    const auto before = store.get(setting.section, key);
    const std::string value = input.text();
    try {
      store.set(setting.section, key, value);
      fuzz::require(store.get(setting.section, key) == value, "a setting has the value that it was given");
    } catch (const refhost::SettingError&) {
      fuzz::require(store.get(setting.section, key) == before, "a refused value changes nothing");
    }
    store.get_int(setting.section, key);
  }
  const SettingsStore again(directory, SettingsStore::Access::read_only);
  for (const auto& setting : settings) {
    fuzz::require(again.get(setting.section, setting.key) == store.get(setting.section, setting.key),
                  "the file holds what the store holds");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  if (input.below(2) == 0) {
    read_schema(input);
  } else {
    change(input);
  }
  return 0;
}
