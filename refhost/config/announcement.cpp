#include <memory>

#include "refhost/settings_store.h"

namespace refhost {

std::unique_ptr<ac::Message> announcement_of(const SettingsStore::Change& change) {
  const bool of_the_system = change.setting.section == kSystemSection;
  auto message = std::make_unique<ac::Message>("config_param_set");
  if (!of_the_system) {
    message->add_string("module", change.setting.section);
  }
  message->add_string("param", change.setting.key);
  message->add_string("value", change.value);
  message->add_string("previous_value", change.previous_value);
  message->add_int("sys_config", of_the_system ? 1 : 0);
  return message;
}

}  // namespace refhost
