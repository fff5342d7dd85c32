#include "audit.h"

#include <array>
#include <mutex>
#include <utility>

#include "ac/util.h"
#include "ac_dal/audit_logs.h"
#include "globals.h"

namespace {

enum AuditType : int { CONFIG = 1, API, USB, NETWORK, TIME, ONLINE, MENU, BOOT };

// Empty when there is no such field.
std::string textField(const ac::Message& message, const char* name) {
  std::string text;
  message.get_string(name, &text);
  return text;
}

std::string formattedTime() {
  std::array<char, 64> buffer{};
  ac::util::get_formatted_date_and_time_ms(buffer.data());
  return buffer.data();
}

void createRecord(AuditType type, std::string details) {
  ac_dal::audit_logs record;
  record.time(formattedTime());
  record.type(type);
  record.details(std::move(details));
  const std::lock_guard lock(db_create_mutex);
  record.create();
}

std::string configDetails(const ac::Message& message) {
  std::string module = "general";
  int systemConfig = 0;
  message.get_string("module", &module);
  message.get_int("sys_config", &systemConfig);
  if (systemConfig != 0) {
    return "System config changed: [module=" + module + "]";
  }
  return "Config changed: [" + module + "]>[" + textField(message, "param") +
         "] [value=" + textField(message, "value") + "]";
}

}  // namespace

const std::vector<std::string> auditTypeLabels{"[none]", "[config]", "[api]",  "[usb]", "[network]",
                                               "[time]", "[online]", "[menu]", "[boot]"};

void create_config_audit_log_callback(ac::Message* message) {
  if (textField(*message, "value") != textField(*message, "previous_value")) {
    createRecord(CONFIG, configDetails(*message));
  }
}

void create_api_audit_log_callback(ac::Message* message) { createRecord(API, textField(*message, "details")); }

void create_usb_audit_log_callback(ac::Message* message) { createRecord(USB, textField(*message, "details")); }

void create_network_audit_log_callback(ac::Message* message) { createRecord(NETWORK, textField(*message, "details")); }

void create_time_audit_log_callback(ac::Message* message) {
  createRecord(TIME, "Time changed, previous value was " + textField(*message, "previous_time"));
}

void create_online_audit_log_callback(ac::Message* message) { createRecord(ONLINE, textField(*message, "details")); }

void create_menu_audit_log_callback(ac::Message* message) { createRecord(MENU, textField(*message, "details")); }

void create_boot_audit_log_callback(ac::Message* /*message*/) { createRecord(BOOT, "Device boot occurred"); }
