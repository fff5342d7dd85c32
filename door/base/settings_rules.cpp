#include "door/base/settings_rules.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "door/base/gpio_plan.h"
#include "refhost/radio_limits.h"

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

// A warning that comes after the alarm is none.
SettingsRule warning_is_before_alarm() {
  return {.of = {{"host", "door_held_warning"}, {"host", "door_held_alarm"}},
          .fault = [](const Values& values) -> std::string {
            const int warning = std::stoi(values("host", "door_held_warning"));
            const int alarm = std::stoi(values("host", "door_held_alarm"));
            return warning == 0 || alarm == 0 || warning < alarm
                       ? ""
                       : "host.door_held_warning " + std::to_string(warning) +
                             " is to be less than host.door_held_alarm, " + std::to_string(alarm) + ", or 0";
          },
          .safe = {{"host", "door_held_warning", "0"}}};
}

using Limit = refhost::RadioLimit;

// A rule of what the region allows; excess: what is more than that, in words.
SettingsRule region_allows(const char* key, std::string safe,
                           std::function<std::string(const Limit&, const Values&)> excess) {
  return {.of = {{"uhf", key}, {"uhf", "region"}, {"host", "beyond_region"}},
          .fault = [excess = std::move(excess)](const Values& values) -> std::string {
            const auto* const limit = refhost::radio_limit_of(values("uhf", "region"));
            if (limit == nullptr || values("host", "beyond_region") == "1") {
              return "";
            }
            const auto fault = excess(*limit, values);
            return fault.empty() ? "" : fault + "; host.beyond_region 1 (config set --force) lets it pass";
          },
          .safe = {{"uhf", key, std::move(safe)}}};
}

SettingsRule region_allows_power() {
  return region_allows(
      "transmit_power", refhost::SettingsSchema::builtin().at("uhf", "transmit_power").default_value,
      [](const Limit& limit, const Values& values) -> std::string {
        const auto power = number(values, "transmit_power");
        return power <= limit.most_power
                   ? ""
                   : "transmit_power " + std::to_string(power) + " is more than region " + std::string(limit.region) +
                         " allows with an antenna of " + std::to_string(refhost::kCountedGain) + " dBi, " +
                         std::to_string(limit.most_power) + " (" + refhost::power_text(limit.most_power) + ")";
      });
}

SettingsRule region_allows_channels() {
  constexpr const char* kEverywhere = "0-10";  // in every region
  return region_allows("work_channel", kEverywhere, [](const Limit& limit, const Values& values) -> std::string {
    const auto outside = refhost::channels_outside(limit, values("uhf", "work_channel"));
    return outside.empty() ? ""
                           : "region " + std::string(limit.region) + " does not allow work_channel " + outside +
                                 " but " + std::string(limit.channels) +
                                 ": set both at once, as in config set region=" + std::string(limit.region) +
                                 " \"work_channel=" + std::string(limit.channels) + "\"";
  });
}

}  // namespace

std::vector<SettingsRule> settings_rules(std::chrono::milliseconds watchdog_limit) {
  const std::int64_t limit = watchdog_limit.count();
  return {pass_is_short(limit),     threads_report(limit), detector_opens_nothing(), region_allows_power(),
          region_allows_channels(), gpio_is_wired(),       warning_is_before_alarm()};
}

}  // namespace achost
