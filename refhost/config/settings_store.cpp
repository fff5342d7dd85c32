#include "refhost/settings_store.h"

#include <algorithm>
#include <iterator>
#include <unordered_map>
#include <utility>

#include "config/settings_file.h"
#include "config/slot.h"
#include "refhost/database.h"
#include "refhost/log.h"

namespace refhost {
namespace {

// A setting's place, as the schema or a caller spells it: looking one up makes no string.
struct Place {
  std::string_view section;
  std::string_view key;
  bool operator==(const Place&) const = default;
};

// The plug-in reads two settings for each tag, so this looks at three letters alone: enough for keys that are words.
struct PlaceHash {
  std::size_t operator()(const Place& place) const noexcept {
    constexpr std::size_t kFactor = 131;
    const std::string_view key = place.key;
    if (key.empty()) {
      return 0;  // asked for, never found
    }
    std::size_t hash = key.size() * kFactor + place.section.size();
    for (const char letter : {key.front(), key[key.size() / 2], key.back()}) {
      hash = hash * kFactor + static_cast<unsigned char>(letter);
    }
    return hash;
  }
};

std::vector<SettingValue> safest_of(const SettingsSchema& schema) {
  std::vector<SettingValue> values;
  for (const Setting& setting : schema.settings()) {
    if (!setting.safest.empty()) {
      values.push_back({setting.section, setting.key, setting.safest});
    }
  }
  return values;
}

// Set while the process starts, read on every call of ac::config.
constinit std::atomic<SettingsStore*> current_store{nullptr};

}  // namespace

struct SettingsStore::Impl {
  explicit Impl(const SettingsSchema& the_schema) : schema(the_schema) {
    for (const Setting& setting : schema.settings()) {
      slots.try_emplace(Place{setting.section, setting.key}, setting);
    }
  }

  void load(const SettingsFile::Row& row);

  // The rules that look at one of these settings, or all; with the mutex held.
  void check_rules(const std::vector<SettingValue>& wanted);
  SettingsRule::Values asked_for(const std::vector<SettingValue>& wanted);
  SettingsRule::Values in_force(const std::vector<SettingValue>& wanted);

  // Make a written value the setting's, and tell of it.
  void take(const SettingValue& written);

  // The slot. Throws SettingError.
  Slot& at(std::string_view section, std::string_view key);

  const SettingsSchema& schema;
  std::unordered_map<Place, Slot, PlaceHash> slots;  // the map itself is constant; its keys view the schema's texts
  std::mutex mutex;                                  // one writer at a time; guards file
  std::optional<SettingsFile> file;                  // empty when read-only or sealed
  std::function<void(const Change&)> on_change;
  std::vector<SettingsRule> rules;
};

void SettingsStore::Impl::load(const SettingsFile::Row& row) {
  try {
    Slot& slot = at(row.section, row.key);
    slot.setting().check(row.value);
    slot.put(row.value);
  } catch (const SettingError& failure) {
    log::warning(std::string("a stored setting is left aside: ") + failure.what());
  }
}

void SettingsStore::Impl::take(const SettingValue& written) {
  Slot& slot = at(written.section, written.key);
  const std::string previous = slot.text();
  slot.overridden = false;
  slot.put(written.value);
  if (written.value != previous && on_change) {
    on_change({slot.setting(), written.value, previous});
  }
}

// The values as they would be.
SettingsRule::Values SettingsStore::Impl::asked_for(const std::vector<SettingValue>& wanted) {
  return [this, &wanted](const std::string& section, const std::string& key) {
    const auto found =
        std::ranges::find_if(wanted, [&](const SettingValue& one) { return one.section == section && one.key == key; });
    return found == wanted.end() ? at(section, key).text() : found->value;
  };
}

// The same of a plug-in that runs, which has not heard of some.
SettingsRule::Values SettingsStore::Impl::in_force(const std::vector<SettingValue>& wanted) {
  return [this, asked = asked_for(wanted)](const std::string& section, const std::string& key) {
    const Slot& slot = at(section, key);
    return !slot.setting().live && slot.at_start.has_value() ? *slot.at_start : asked(section, key);
  };
}

void SettingsStore::Impl::check_rules(const std::vector<SettingValue>& wanted) {
  const auto touches = [&wanted](const SettingsRule& rule) {
    return std::ranges::any_of(wanted, [&rule](const SettingValue& one) {
      return std::ranges::find(rule.of, std::pair(one.section, one.key)) != rule.of.end();
    });
  };
  for (const auto& rule : rules) {
    for (const auto& values : {asked_for(wanted), in_force(wanted)}) {
      if (const auto fault = wanted.empty() || touches(rule) ? rule.fault(values) : ""; !fault.empty()) {
        throw SettingError(fault);
      }
    }
  }
}

Slot& SettingsStore::Impl::at(std::string_view section, std::string_view key) {
  const auto found = slots.find(Place{section, key});
  if (found == slots.end()) {
    schema.at(section, key);  // throws
  }
  return found->second;
}

SettingsStore::SettingsStore(const std::filesystem::path& directory, Access access, const SettingsSchema& schema)
    : impl_(std::make_unique<Impl>(schema)) {
  const auto file = directory / SettingsFile::kName;
  if (access == Access::read_write) {
    make_state_directory(directory);
    impl_->file.emplace(file, safest_of(schema));
  }
  for (const auto& row : impl_->file.has_value() ? impl_->file->rows() : SettingsFile::read(file)) {
    impl_->load(row);
  }
}

SettingsStore::~SettingsStore() {
  SettingsStore* self = this;
  current_store.compare_exchange_strong(self, nullptr);
}

void SettingsStore::on_change(std::function<void(const Change&)> callback) { impl_->on_change = std::move(callback); }

void SettingsStore::keep(std::vector<SettingsRule> rules) { impl_->rules = std::move(rules); }

std::vector<std::string> SettingsStore::make_safe_for_run() {
  std::vector<std::string> told;
  for (const auto& rule : impl_->rules) {
    auto fault = rule.fault(impl_->asked_for({}));
    if (fault.empty()) {
      continue;
    }
    std::string instead;
    for (const auto& [section, key, value] : rule.safe) {
      if (get(section, key) != value) {
        override_for_run(section, key, value);
        instead += (instead.empty() ? "; this run has " : " and ") + key + " " + value;
      }
    }
    told.push_back(fault + instead);
  }
  return told;
}

void SettingsStore::check_rules() const {
  const std::lock_guard lock(impl_->mutex);
  impl_->check_rules({});
}

void SettingsStore::begin_run() {
  const std::lock_guard lock(impl_->mutex);
  for (auto& [place, slot] : impl_->slots) {
    slot.at_start = slot.text();
  }
}

std::optional<std::string> SettingsStore::get(std::string_view section, std::string_view key) const {
  const auto found = impl_->slots.find(Place{section, key});
  return found == impl_->slots.end() ? std::nullopt : std::optional(found->second.text());
}

std::optional<int> SettingsStore::get_int(std::string_view section, std::string_view key) const noexcept {
  const auto found = impl_->slots.find(Place{section, key});
  return found == impl_->slots.end() ? std::nullopt : found->second.number();
}

void SettingsStore::check(const std::vector<SettingValue>& wanted) const {
  for (const auto& [section, key, value] : wanted) {
    impl_->at(section, key).setting().check(value);
  }
  const std::lock_guard lock(impl_->mutex);
  impl_->check_rules(wanted);
}

void SettingsStore::set(std::string_view section, std::string_view key, const std::string& value) {
  set({{std::string(section), std::string(key), value}});
}

void SettingsStore::set(const std::vector<SettingValue>& wanted) {
  for (const auto& [section, key, value] : wanted) {
    impl_->at(section, key).setting().check(value);
  }
  const std::lock_guard lock(impl_->mutex);
  std::vector<SettingValue> to_write;
  std::ranges::copy_if(wanted, std::back_inserter(to_write), [this](const SettingValue& one) {
    const Slot& slot = impl_->at(one.section, one.key);
    return slot.overridden || slot.text() != one.value;
  });
  if (to_write.empty()) {
    return;
  }
  impl_->check_rules(to_write);
  if (!impl_->file.has_value()) {
    throw ac::ac_exception("setting " + to_write.front().key + " cannot be written: the store is open for reading only",
                           true);
  }
  impl_->file->write(to_write);
  // With the lock held, so that the announcements come in the order of the changes.
  for (const auto& one : to_write) {
    impl_->take(one);
  }
}

void SettingsStore::override_for_run(std::string_view section, std::string_view key, const std::string& value) {
  Slot& slot = impl_->at(section, key);
  slot.setting().check(value);
  const std::lock_guard lock(impl_->mutex);
  slot.overridden = true;
  slot.put(value);
}

bool SettingsStore::is_overridden(std::string_view section, std::string_view key) const {
  const Slot& slot = impl_->at(section, key);
  const std::lock_guard lock(impl_->mutex);
  return slot.overridden;
}

std::vector<std::string> SettingsStore::faults() const {
  const std::lock_guard lock(impl_->mutex);
  return impl_->file.has_value() ? impl_->file->faults() : std::vector<std::string>();
}

StoreReport SettingsStore::inspect(const std::filesystem::path& directory) { return SettingsFile::inspect(directory); }

void SettingsStore::seal() {
  impl_->mutex.lock();  // for good
  impl_->file.reset();
}

const SettingsSchema& SettingsStore::schema() const { return impl_->schema; }

SettingsStore* SettingsStore::current() noexcept { return current_store.load(); }

void SettingsStore::make_current(SettingsStore* store) noexcept { current_store.store(store); }

}  // namespace refhost
