#include "settings.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "ac/config.h"
#include "ac/config_util.h"
#include "globals.h"

int intSetting(const std::string& key, bool required) { return ac::config_util::get_int("uhf", key, required); }

std::string textSetting(const std::string& key, bool required) {
  std::string text;
  ac::config::get_param("uhf", key, text, required);
  return text;
}

int readOperationMode() {
  constexpr std::array<std::pair<std::string_view, OperationMode>, 3> MODES{
      {{"trigger", TRIGGER}, {"continuous", CONTINUOUS}, {"inhibit", INHIBIT}}};
  const auto word = toLower(textSetting("operation_mode"));
  const auto* mode = std::ranges::find(MODES, std::string_view(word), [](const auto& entry) { return entry.first; });
  return mode == MODES.end() ? CONTINUOUS : mode->second;
}

void readSettings() {
  trigAntiesmagGPIO = intSetting("trig_gpio", true);
  watchdogTimeout = intSetting("watchdog_timeout", true);
  tagDetectorTagPresentTimeout = intSetting("tag_detector_tag_present_timeout");
  const int relay = intSetting("tag_detector_relay");
  tagDetectorRelayGPIO = ac::config_util::relay_gpio(relay);
  tagDetectorEnabled = intSetting("tag_detector_enabled") != 0;
  ac::config_util::relay_enabled(relay, !tagDetectorEnabled);
  uhf_operation_mode_ = readOperationMode();
  trigger_idle_ = intSetting("trig_idle");
  trigger_timeout_ = intSetting("trigger_timeout");
  same_tag_timeout_ = intSetting("read_interval");
  different_tag_timeout_ = intSetting("read_interval_diff_tags");
}

std::string toLower(std::string text) {
  std::ranges::transform(text, text.begin(),
                         [](char c) { return 'A' <= c && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return text;
}

std::string toUpper(std::string text) {
  std::ranges::transform(text, text.begin(),
                         [](char c) { return 'a' <= c && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
  return text;
}
