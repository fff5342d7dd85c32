// The lines of a run, for whoever puts them at rest after it.
#pragma once

#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "door/base/gpio_plan.h"

namespace achost::gpio {

// The settings that say what the lines of a run are, in a file below RUNTIME_DIRECTORY, which a service has in memory:
// it is there when the disk is not, knows what was given for the run alone, and nothing of what is for the next one.
// Without such a directory nothing is kept, nor where the file cannot be written: the stored settings are nearly as
// good. Any thread may call.
class KeptPlan {
 public:
  // The lines are taken.
  void begin(const SettingsValues& values);

  // Those that are in force at once may have changed.
  void settings_changed(const SettingsValues& values);

  // What the last run has kept; nothing when it has kept nothing.
  static std::optional<SettingsValues> of_last_run();

 private:
  using Place = std::pair<std::string, std::string>;  // section and key

  void write() const;

  std::mutex mutex_;                   // guards kept_ and the file
  std::map<Place, std::string> kept_;  // empty until the lines are taken
};

}  // namespace achost::gpio
