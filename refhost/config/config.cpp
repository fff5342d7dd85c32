// ac::config and the settings of ac::config_util: the current store as plug-ins see it. Flags other than "required"
// mean nothing to this host.
#include "ac/config.h"

#include <utility>

#include "ac/config_util.h"
#include "ac/exception.h"
#include "config/int_ranges.h"
#include "refhost/settings_store.h"

namespace {

using refhost::SettingsStore;

[[noreturn]] void throw_missing(const std::string& section, const std::string& key, const char* kind) {
  throw ac::ac_exception("setting " + key + " of section " + section + " is missing or is not " + kind, true);
}

SettingsStore& store_to_write() {
  SettingsStore* const store = SettingsStore::current();
  if (store == nullptr) {
    throw ac::ac_exception("no configuration store is open", true);
  }
  return *store;
}

}  // namespace

namespace ac::config {

bool get_param(const std::string& section, const std::string& key, std::string& value, bool /*flag*/) {
  const SettingsStore* const store = SettingsStore::current();
  auto stored = store == nullptr ? std::nullopt : store->get(section, key);
  if (!stored.has_value()) {
    return false;
  }
  value = std::move(*stored);
  return true;
}

void set_param(const std::string& section, const std::string& key, const std::string& value, bool /*flag*/) {
  store_to_write().set(section, key, value);
}

}  // namespace ac::config

namespace ac::config_util {

int get_int(const std::string& section, const std::string& key, bool required) {
  const SettingsStore* const store = SettingsStore::current();
  const auto number = store == nullptr ? std::nullopt : store->get_int(section, key);
  if (!number.has_value() && required) {
    throw_missing(section, key, "a number");
  }
  return number.value_or(0);
}

std::vector<int> get_int_range(const std::string& section, const std::string& key, bool required) {
  std::string text;
  config::get_param(section, key, text, false);
  auto numbers = refhost::parse_int_ranges(text);
  if (!numbers.has_value() && required) {
    throw_missing(section, key, "a list of ranges");
  }
  return std::move(numbers).value_or(std::vector<int>());
}

void set_int(int value, const std::string& section, const std::string& key, bool /*flag*/) {
  store_to_write().set(section, key, std::to_string(value));
}

}  // namespace ac::config_util
