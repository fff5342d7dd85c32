// What the lines of the door are wired to, as the settings say it.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "refhost/settings_rule.h"

namespace achost {

// Lines have numbers on the bus. 0 to 255 are those of the virtual device, among them its relays; the others have one
// use each.
inline constexpr int kFirstNamedLine = 256;
inline constexpr int kExitButton = 256;
inline constexpr int kDoorContact = 257;
inline constexpr int kTamperContact = 258;
inline constexpr int kReaderReset = 259;
inline constexpr int kModeSwitch = 260;
inline constexpr int kGpioLines = 261;

// For a person: "exit button", "relay 2", "line 7".
std::string gpio_line_name(int line);

// A line of a GPIO chip: LINE [active-low] [pull-up|pull-down|no-bias] [debounce=MS] [rest=0|1]
struct WiredLine {
  enum class Bias { as_is, pull_up, pull_down, none };

  std::string line;         // its name, or its number on the chip
  bool active_low = false;  // it counts as 1 while its voltage is low
  Bias bias = Bias::as_is;
  int debounce_ms = 0;  // of an input: how long it must be steady
  int rest = 0;         // of an output: its level at the start, and at an end of any kind

  // The number on the chip, if it is one.
  std::optional<unsigned> offset() const;

  bool operator==(const WiredLine&) const = default;
};

// Throws refhost::SettingError with what is wrong; setting: what to call it.
WiredLine wired_line_of(const std::string& setting, const std::string& text, bool is_output);

// A line with its use.
struct PlannedLine {
  std::string use;  // the setting's key: "relay_2"
  int number = 0;   // on the bus
  bool is_output = false;
  WiredLine wired;
};

struct GpioPlan {
  std::string chip;  // by path, name or label; empty: all lines are virtual
  std::vector<PlannedLine> lines;
};

using SettingsValues = refhost::SettingsRule::Values;

// Throws refhost::SettingError with what is wrong with the settings as a whole.
GpioPlan gpio_plan(const SettingsValues& values);

// The line on the bus that is 1 on the chip while it is 0 on the bus: the relay of a lock that is open without power,
// and so has it at rest. -1: none.
int inverted_line(const SettingsValues& values);

// The line of the reader's reset input on the bus; -1 where there is none.
int reader_reset_line(const SettingsValues& values);

// The rule that there is such a plan. A run that finds it broken has virtual lines.
refhost::SettingsRule gpio_is_wired();

}  // namespace achost
