#include "door/base/settings_rules.h"

#include <algorithm>
#include <cstdint>
#include <string>

namespace achost {
namespace {

using refhost::SettingsRule;
using refhost::SettingValue;
using Values = SettingsRule::Values;

std::int64_t number(const Values& values, const char* key) { return std::stoll(values("uhf", key)); }

// The default, or what is possible of it.
SettingValue usual(const char* key, std::int64_t most) {
  const auto value = std::stoll(refhost::SettingsSchema::builtin().at("uhf", key).default_value);
  return {"uhf", key, std::to_string(std::min<std::int64_t>(value, most))};
}

std::string ended_by_watchdog(std::int64_t limit) {
  return ", and the watchdog ends a run with a thread that is silent for " + std::to_string(limit) + " ms";
}

// The reading loop reports once a pass: a pause, and at the most a reader that does not answer.
SettingsRule pass_is_short(std::int64_t limit) {
  const std::int64_t most = limit / 10 * 9;
  return {.of = {{"uhf", "probe_interval"}, {"uhf", "serial_port_timeout"}},
          .fault = [limit, most](const Values& values) -> std::string {
            const auto pause = number(values, "probe_interval");
            const auto wait = number(values, "serial_port_timeout");
            return pause + wait <= most ? ""
                                        : "probe_interval " + std::to_string(pause) + " with serial_port_timeout " +
                                              std::to_string(wait) + " is not possible: together they may have " +
                                              std::to_string(most) + " ms" + ended_by_watchdog(limit);
          },
          .safe = {usual("probe_interval", most), usual("serial_port_timeout", most)}};
}

SettingsRule threads_report(std::int64_t limit) {
  const std::int64_t most = limit / 2;
  return {.of = {{"uhf", "watchdog_timeout"}},
          .fault = [limit, most](const Values& values) -> std::string {
            const auto period = number(values, "watchdog_timeout");
            return period <= most ? ""
                                  : "watchdog_timeout " + std::to_string(period) + " is not possible: it may be " +
                                        std::to_string(most) + " ms at most" + ended_by_watchdog(limit);
          },
          .safe = {usual("watchdog_timeout", most)}};
}

SettingsRule detector_opens_nothing() {
  return {.of = {{"uhf", "tag_detector_enabled"}, {"uhf", "tag_detector_relay"}, {"host", "door_relay"}},
          .fault = [](const Values& values) -> std::string {
            const auto relay = values("host", "door_relay");
            const bool opens =
                values("uhf", "tag_detector_enabled") == "1" && values("uhf", "tag_detector_relay") == relay;
            return opens ? "tag_detector_relay and host.door_relay cannot both be " + relay +
                               " while tag_detector_enabled is 1: any tag would open the door"
                         : "";
          },
          .safe = {{"uhf", "tag_detector_enabled", "0"}}};
}

}  // namespace

std::vector<SettingsRule> settings_rules(std::chrono::milliseconds watchdog_limit) {
  const std::int64_t limit = watchdog_limit.count();
  return {pass_is_short(limit), threads_report(limit), detector_opens_nothing()};
}

}  // namespace achost
