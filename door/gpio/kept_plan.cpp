#include "door/gpio/kept_plan.h"

#include <cstdlib>
#include <fstream>
#include <memory>
#include <system_error>

#include "refhost/settings_schema.h"

namespace achost::gpio {
namespace {

// Empty where there is no place for it.
std::filesystem::path kept_file() {
  const char* const directories = std::getenv("RUNTIME_DIRECTORY");  // of a service: one, or several behind colons
  const std::string all = directories == nullptr ? "" : directories;
  return all.starts_with('/') ? std::filesystem::path(all.substr(0, all.find(':'))) / "gpio" : std::filesystem::path();
}

}  // namespace

void KeptPlan::begin(const SettingsValues& values) {
  const std::lock_guard lock(mutex_);
  for (const auto& [section, key] : gpio_is_wired().of) {
    kept_[{section, key}] = values(section, key);
  }
  kept_[{"host", "door_fail"}] = values("host", "door_fail");
  write();
}

void KeptPlan::settings_changed(const SettingsValues& values) {
  const std::lock_guard lock(mutex_);
  bool is_new = false;
  for (const char* const key : {"door_relay", "door_fail"}) {
    if (const auto found = kept_.find({"host", key}); found != kept_.end() && found->second != values("host", key)) {
      found->second = values("host", key);
      is_new = true;
    }
  }
  if (is_new) {
    write();
  }
}

// The file is whole or as it was.
void KeptPlan::write() const {
  const auto file = kept_file();
  if (file.empty()) {
    return;
  }
  const std::filesystem::path fresh = file.string() + ".new";
  std::ofstream out(fresh);
  for (const auto& [place, value] : kept_) {
    out << place.first << '\n' << place.second << '\n' << value << '\n';
  }
  out.close();
  std::error_code ignored;
  if (out) {
    std::filesystem::rename(fresh, file, ignored);
  }
}

std::optional<SettingsValues> KeptPlan::of_last_run() {
  std::ifstream in(kept_file());
  auto kept = std::make_shared<std::map<Place, std::string>>();
  for (std::string section, key, value;
       std::getline(in, section) && std::getline(in, key) && std::getline(in, value);) {
    kept->insert_or_assign({section, key}, value);
  }
  if (kept->empty()) {
    return std::nullopt;
  }
  return [kept](const std::string& section, const std::string& key) {
    const auto found = kept->find({section, key});
    return found == kept->end() ? refhost::SettingsSchema::builtin().at(section, key).default_value : found->second;
  };
}

}  // namespace achost::gpio
