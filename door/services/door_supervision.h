// Looks after the door: its contacts and its mode.
#pragma once

#include <atomic>
#include <chrono>

#include "ac/message.h"
#include "door/services/alarms.h"
#include "door/services/door_modes.h"
#include "door/services/door_service.h"
#include "door/services/door_watch.h"
#include "door/services/gpio_service.h"
#include "refhost/subscriber.h"
#include "refhost/timer.h"

namespace achost {

// Tells a DoorWatch and a DoorModes what happens on the bus, and the time at least once a second. Nothing that people
// need to get out waits for it.
class DoorSupervision {
 public:
  // All must outlive it.
  DoorSupervision(DoorService& door, const GpioService& gpio, Alarms& alarms, SettingsValues settings,
                  ScheduleLookup is_within);

  // The lines are those of the run; nothing is looked at before. The mode is in force when this returns.
  void begin();

  // Settings or schedules may have changed.
  void look_soon();

  // Whether cards do not open the door. Waits for nothing.
  bool is_locked() const { return modes_.mode() == DoorMode::locked; }

  // A command of a person: the mode that is stored; or that one, for so long.
  void go_by_settings();
  void begin_for(DoorMode mode, std::chrono::milliseconds length);

  struct Report {
    bool is_lock_open = false;
    DoorModes::Report mode = {};
    DoorWatch::Report contacts = {};
  };
  Report report() const;

 private:
  void line_changed(const ac::Message& message);
  void lock_moved(const ac::Message& message);
  void look();

  DoorService& door_;
  const GpioService& gpio_;
  const SettingsValues settings_;
  DoorModes modes_;
  DoorWatch watch_;
  std::atomic<bool> has_begun_ = false;
  refhost::Timer timer_;
  refhost::Subscriber subscriber_;  // last: it stops using the others before they go
};

}  // namespace achost
