#include "door/base/gpio_plan.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <sstream>
#include <utility>

#include "ac/config_util.h"
#include "refhost/relays.h"

namespace achost {
namespace {

using refhost::SettingError;

constexpr const char* kLineForm = "LINE [active-low] [pull-up|pull-down|no-bias]";
constexpr int kLongestDebounce = 1000;  // ms

std::optional<unsigned> whole_number(const std::string& text) {
  unsigned number = 0;
  const char* const end = text.data() + text.size();
  const auto [parsed_to, failure] = std::from_chars(text.data(), end, number);
  return failure == std::errc() && parsed_to == end ? std::optional(number) : std::nullopt;
}

// A use of a line besides the relays.
struct Use {
  const char* key;
  bool is_output;
  int number;  // on the bus; -1: the setting uhf.trig_gpio
};
constexpr std::array<Use, 6> kUses = {{{"exit_button", false, kExitButton},
                                       {"trigger_input", false, -1},
                                       {"door_contact", false, kDoorContact},
                                       {"tamper_contact", false, kTamperContact},
                                       {"mode_switch", false, kModeSwitch},
                                       {"reader_reset", true, kReaderReset}}};

std::string relay_key(int relay) { return "relay_" + std::to_string(relay); }

// All uses, with their numbers on the bus.
std::vector<PlannedLine> uses(const SettingsValues& values) {
  std::vector<PlannedLine> all;
  for (int relay = refhost::kFirstRelay; relay <= refhost::kLastRelay; ++relay) {
    all.push_back({relay_key(relay), ac::config_util::relay_gpio(relay), true, {}});
  }
  for (const auto& [key, is_output, number] : kUses) {
    all.push_back({key, number >= 0 ? number : std::stoi(values("uhf", "trig_gpio")), is_output, {}});
  }
  return all;
}

void apply(WiredLine& line, const std::string& setting, const std::string& word, bool is_output) {
  using Bias = WiredLine::Bias;
  static const std::map<std::string, Bias> kBiases = {
      {"pull-up", Bias::pull_up}, {"pull-down", Bias::pull_down}, {"no-bias", Bias::none}};
  const auto number = whole_number(word.substr(word.find('=') + 1));
  if (word == "active-low") {
    line.active_low = true;
  } else if (const auto bias = kBiases.find(word); bias != kBiases.end()) {
    line.bias = bias->second;
  } else if (!is_output && word.starts_with("debounce=") && number.has_value() && *number <= kLongestDebounce) {
    line.debounce_ms = static_cast<int>(*number);
  } else if (is_output && (word == "rest=0" || word == "rest=1")) {
    line.rest = static_cast<int>(*number);
  } else {
    throw SettingError(setting + " cannot have \"" + word + "\": it is " + kLineForm +
                       (is_output ? " [rest=0|1]" : " [debounce=0.." + std::to_string(kLongestDebounce) + "]"));
  }
}

// The number on the bus of each line, and each line of the chip, is used once.
void check_uses(const std::vector<PlannedLine>& lines) {
  for (auto one = lines.begin(); one != lines.end(); ++one) {
    const auto again = std::find_if(one + 1, lines.end(), [&](const PlannedLine& other) {
      return other.number == one->number || other.wired.line == one->wired.line;
    });
    if (again != lines.end()) {
      const std::string both = "host." + one->use + " and host." + again->use + " cannot both be line ";
      throw again->number == one->number
          ? SettingError(both + std::to_string(one->number) + " of the bus: change uhf.trig_gpio")
          : SettingError(both + one->wired.line + " of the chip");
    }
  }
}

void check_door(const GpioPlan& plan, const SettingsValues& values) {
  const auto key = relay_key(std::stoi(values("host", "door_relay")));
  const auto relay = std::ranges::find(plan.lines, key, &PlannedLine::use);
  if (relay == plan.lines.end()) {
    throw SettingError("host.door_relay " + values("host", "door_relay") + " has no line on host.gpio_chip " +
                       plan.chip + ": set host." + key + " too");
  }
  if (relay->wired.rest != 0) {
    throw SettingError("host." + key +
                       " opens the door and cannot have \"rest=1\": host.door_fail says its level at rest");
  }
}

}  // namespace

std::string gpio_line_name(int line) {
  constexpr std::array<const char*, kGpioLines - kFirstNamedLine> kNames = {
      "exit button", "door contact", "tamper contact", "reader reset", "mode switch"};
  if (line >= kFirstNamedLine && line < kGpioLines) {
    return kNames.at(static_cast<std::size_t>(line - kFirstNamedLine));
  }
  for (int relay = refhost::kFirstRelay; relay <= refhost::kLastRelay; ++relay) {
    if (ac::config_util::relay_gpio(relay) == line) {
      return "relay " + std::to_string(relay);
    }
  }
  return "line " + std::to_string(line);
}

std::optional<unsigned> WiredLine::offset() const { return whole_number(line); }

WiredLine wired_line_of(const std::string& setting, const std::string& text, bool is_output) {
  std::istringstream words(text);
  WiredLine line;
  words >> line.line;
  if (line.line.empty()) {
    throw SettingError(setting + " names no line: it is " + kLineForm);
  }
  for (std::string word; words >> word;) {
    apply(line, setting, word, is_output);
  }
  return line;
}

GpioPlan gpio_plan(const SettingsValues& values) {
  GpioPlan plan{.chip = values("host", "gpio_chip"), .lines = {}};
  for (auto& use : uses(values)) {
    if (const auto text = values("host", use.use); !text.empty()) {
      use.wired = wired_line_of("host." + use.use, text, use.is_output);
      plan.lines.push_back(std::move(use));
    }
  }
  if (plan.chip.empty()) {
    plan.lines.clear();
    return plan;
  }
  check_uses(plan.lines);
  check_door(plan, values);
  return plan;
}

int inverted_line(const SettingsValues& values) {
  const bool is_open_without_power = values("host", "door_fail") == "safe";
  return is_open_without_power ? ac::config_util::relay_gpio(std::stoi(values("host", "door_relay"))) : -1;
}

int reader_reset_line(const SettingsValues& values) {
  const bool is_wired = !values("host", "gpio_chip").empty() && !values("host", "reader_reset").empty();
  return is_wired ? kReaderReset : std::stoi(values("host", "reader_reset_line"));
}

refhost::SettingsRule gpio_is_wired() {
  std::vector<std::pair<std::string, std::string>> of = {
      {"host", "gpio_chip"}, {"host", "door_relay"}, {"uhf", "trig_gpio"}};
  for (int relay = refhost::kFirstRelay; relay <= refhost::kLastRelay; ++relay) {
    of.emplace_back("host", relay_key(relay));
  }
  for (const auto& use : kUses) {
    of.emplace_back("host", use.key);
  }
  return {.of = std::move(of),
          .fault = [](const SettingsValues& values) -> std::string {
            try {
              gpio_plan(values);
              return "";
            } catch (const SettingError& failure) {
              return failure.what();
            }
          },
          .safe = {{"host", "gpio_chip", ""}}};
}

}  // namespace achost
