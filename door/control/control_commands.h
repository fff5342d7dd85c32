// What a running host can be asked for.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>

#include "door/control/control.h"
#include "door/control/event_ring.h"
#include "door/control/stores.h"
#include "door/control/why_commands.h"
#include "door/journal/entry.h"
#include "door/services/alarms.h"
#include "door/services/door_supervision.h"
#include "door/services/enroller_service.h"
#include "door/services/gpio_service.h"
#include "door/services/settings_changes.h"
#include "line/line.h"
#include "refhost/settings_store.h"
#include "uhfsim/simulated_reader.h"

namespace achost {

// The parts of a host that the commands use; all outlive the server.
struct ControlledHost {
  std::string version;  // of the program
  std::filesystem::path state;
  std::chrono::steady_clock::time_point started;
  const refhost::SettingsStore& settings;
  const SettingsChanges& changes;
  Stores& stores;
  Alarms& alarms;
  const GpioService& gpio;
  DoorSupervision& door;
  std::function<void(const Entry&)> note;  // in the journal
  EnrollerService& enroller;
  EventRing& events;
  std::string reader;                  // where it is, for a person
  line::Line* line;                    // null when the plug-in has the port itself
  uhfsim::SimulatedReader* simulated;  // null when the reader is a real one
  WhySources why;
  std::function<Json()> second_opinion;  // its counters; null without a line
  std::function<Json()> figures;         // what it counts: "polls", "identifications", "stages" and "readings"
  std::function<void()> start_anew;      // the host; null when it cannot
  std::function<std::string()> plugin;   // the name of the plug-in that runs; empty until it has started
};

// store_commands(), reader_commands(), power_commands() and door_commands(), gpio_list, gpio_set, rex, enroll, field,
// field_show, gateway_alarm, status, why, why_now, events and hello.
ControlTable control_table(const ControlledHost& host);

}  // namespace achost
