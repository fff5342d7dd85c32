// What a running host is asked by who looks for the right power, and for the right number of a card.
#pragma once

#include <functional>
#include <vector>

#include "door/control/control.h"
#include "door/control/why_commands.h"
#include "door/journal/entry.h"
#include "line/line.h"
#include "refhost/settings_store.h"

namespace achost {

// The parts of a host that these commands use; all outlive the server.
struct ControlledRadio {
  line::Line* line;  // null when the plug-in has the port itself; then they say so
  const refhost::SettingsStore& settings;
  std::function<std::vector<why::ToldSighting>()> sightings;  // of late
  std::function<void(const Entry&)> note;
};

// try_power, choose_power, watch_field and card_forms.
std::vector<ControlCommand> power_commands(const ControlledRadio& radio);

}  // namespace achost
