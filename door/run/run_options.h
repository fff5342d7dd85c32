// What achost run is asked for.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "door/base/settings_rules.h"

namespace achost {

struct RunOptions {
  std::string plugin;            // empty: uhf.so in the lib directory beside the program's own
  std::string state;             // empty: the usual place
  std::string port;              // empty: the setting serial_port_path
  bool temporary_state = false;  // in place of state: a directory for this run alone
  bool simulate = false;
  bool direct = false;       // the plug-in has the port itself
  bool wait = false;         // begin before there is a port, or a reader that answers
  bool interactive = false;  // simulated, with an empty field, and with hints for a person
  std::string scenario;      // empty: the built-in one
  std::uint64_t seed = 1;
  std::vector<std::string> settings;  // SECTION.KEY=VALUE or KEY=VALUE
  std::optional<double> seconds;      // empty: until a signal
  bool json = false;
  bool debug = false;
  bool show_cards = false;
  double watchdog_limit = std::chrono::duration<double>(kUsualWatchdogLimit).count();  // seconds
};

}  // namespace achost
