#include "plugin.h"

#include <array>
#include <chrono>
#include <exception>
#include <memory>

#include "audit.h"
#include "enrollment.h"
#include "gpio_events.h"
#include "live_config.h"
#include "radio_setup.h"
#include "reading_loop.h"
#include "settings.h"
#include "t640.h"

namespace {

void openReader() {
  const auto path = textSetting("serial_port_path", true);
  const std::chrono::milliseconds timeout(intSetting("serial_port_timeout", true));
  t640_module = std::make_unique<ac::UHF::T640>(path, timeout);
}

void setUpRadio() {
  setRegion();
  applyTransmitPower();
  setWorkChannel();
}

// The handlers of the plug-in's own queue. Nothing moves "config_param_set" into it.
void listenToQueue() {
  const std::array<ac::MessageListener, 5> listeners{{
      {"config_param_set", configParamSetCallback, false},
      {"enroller_remote_enroll", remoteEnrollCallback, true},
      {"enroll_rfid_successful", enrollRfidSuccessfulCallback, true},
      {"enroll_timeout", enrollTimeoutCallback, true},
      {"enroller_error", errorOccurredCallback, true},
  }};
  enqueuer.listen(listeners.data(), listeners.size());
}

// The handlers that the host calls on its delivery thread.
void listenToHost(ac::Plugin& plugin) {
  const std::array<ac::MessageListener, 14> listeners{{
      {"config_param_set", configParamSetCallback, false},
      {"enroller_remote_enroll", messageTransferCallback, true},
      {"enroll_rfid_successful", messageTransferCallback, true},
      {"enroll_timeout", messageTransferCallback, true},
      {"enroller_error", messageTransferCallback, true},
      {"gpio_notified", gpioNotifiedCallback, true},
      {"sec_box_rex_changed", secBoxRexChangedCallback, true},
      {"audit_logs_new_api", create_api_audit_log_callback, false},
      {"audit_logs_new_usb", create_usb_audit_log_callback, false},
      {"audit_logs_new_network", create_network_audit_log_callback, false},
      {"ac_util_system_clock_set", create_time_audit_log_callback, false},
      {"audit_logs_new_online", create_online_audit_log_callback, false},
      {"audit_logs_new_menu", create_menu_audit_log_callback, false},
      {"audit_logs_new_boot", create_boot_audit_log_callback, false},
  }};
  plugin.add_messages_interested(listeners.data(), listeners.size());
}

}  // namespace

bool init(ac::Plugin* plugin, std::string* error) {
  try {
    plugin->set_name("uhf");
    plugin->set_run(run);
    readSettings();
    openReader();
    setUpRadio();
    listenToQueue();
    listenToHost(*plugin);
    return true;
  } catch (const std::exception& failure) {
    *error += failure.what();
    return false;
  }
}
