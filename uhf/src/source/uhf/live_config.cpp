#include "live_config.h"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>

#include "ac/config_util.h"
#include "ac/exception.h"
#include "audit.h"
#include "globals.h"
#include "radio_setup.h"
#include "settings.h"
#include "usb_port.h"

namespace {

// The setting, after raising it to its least value in the store, where others read it too.
int atLeast(int least, const std::string& key) {
  if (intSetting(key) < least) {
    ac::config_util::set_int(least, "uhf", key, false);
  }
  return intSetting(key);
}

// A relay that shows tags is taken from the host, and given back when it no longer does.
void applyTagDetectorEnabled() {
  const bool enabled = intSetting("tag_detector_enabled") != 0;
  tagDetectorEnabled = enabled;
  ac::config_util::relay_enabled(intSetting("tag_detector_relay"), !enabled);
}

// The settings of section "uhf" that apply at once, and how.
constexpr std::array<std::pair<std::string_view, void (*)()>, 10> LIVE_SETTINGS{{
    {"transmit_power", applyTransmitPower},
    {"work_channel", setWorkChannel},
    {"region", setRegion},
    {"read_interval_diff_tags", [] { different_tag_timeout_ = atLeast(100, "read_interval_diff_tags"); }},
    {"read_interval", [] { same_tag_timeout_ = atLeast(250, "read_interval"); }},
    {"tag_detector_enabled", applyTagDetectorEnabled},
    {"operation_mode", [] { uhf_operation_mode_ = readOperationMode(); }},
    {"trig_idle", [] { trigger_idle_ = intSetting("trig_idle"); }},
    {"trigger_timeout", [] { trigger_timeout_ = intSetting("trigger_timeout"); }},
    {"probe_interval", [] { setProbeInterval(intSetting("probe_interval")); }},
}};

void applySetting(std::string_view key) {
  const auto* const setting = std::ranges::find(LIVE_SETTINGS, key, [](const auto& row) { return row.first; });
  if (setting != LIVE_SETTINGS.end()) {
    setting->second();
  }
}

}  // namespace

void configParamSetCallback(ac::Message* message) {
  create_config_audit_log_callback(message);
  std::string module;
  std::string key;
  const bool ofTheSystem = !message->get_string("module", &module);
  const bool named = message->get_string("param", &key);
  if (!ofTheSystem) {
    if (named && module == "uhf") {
      applySetting(key);
    }
    return;
  }
  if (!named) {
    throw ac::ac_exception("Invalid message parameters", true);
  }
  if (key == "usb_port_enabled") {
    configUSB(message);
  }
}
