// Which mode the door is in, and that it comes into force.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "door/base/gpio_plan.h"
#include "door/services/alarms.h"
#include "door/services/door_mode.h"

namespace achost {

// Whether an instant lies within the schedule of that name; nothing: there is no such schedule. It must not wait for a
// disk.
using ScheduleLookup = std::function<std::optional<bool>(const std::string&, std::chrono::system_clock::time_point)>;

// Looks at the command (host.door_mode, or one for a time), the input of host.mode_switch and the schedules
// host.locked_schedule and host.unlocked_schedule. A change of the mode is told as "door_mode" {int "id", string
// "mode", string "by"}. A schedule that is not there is an alarm, "door_schedule", and as if its time had not come. The
// time is a parameter. Any thread may call.
class DoorModes {
 public:
  using Time = std::chrono::steady_clock::time_point;
  using WallTime = std::chrono::system_clock::time_point;

  struct Needs {
    SettingsValues settings;
    ScheduleLookup is_within;
    Alarms& alarms;  // outlive this
    std::function<void(bool)> stay_open;
  };

  explicit DoorModes(Needs needs);

  // The mode switch is wired, and has that level.
  void switched(bool is_on);

  // Be in that mode for so long, whatever is stored; a command after it ends that.
  void begin_for(DoorMode mode, std::chrono::milliseconds length, Time now);
  void end_command();

  // See what mode there is to be.
  void look(Time now, WallTime wall);

  struct Report {
    ModeInForce in_force = {};
    std::optional<std::chrono::milliseconds> left = {};  // of a command that is for a time
  };
  Report report(Time now) const;

  // The one that is in force. Waits for nothing.
  DoorMode mode() const { return mode_; }

 private:
  struct ForATime {
    DoorMode mode;
    Time until;
    std::string stored;  // the setting as it was then: another one ends it
  };

  std::optional<DoorMode> commanded(Time now);
  bool is_time(const char* setting, WallTime wall, std::string& missing) const;
  void bring_into_force(const ModeInForce& wanted);

  const Needs needs_;
  mutable std::mutex mutex_;  // guards everything below but mode_
  std::optional<ForATime> for_a_time_;
  std::optional<bool> is_switched_on_;  // nothing: there is no mode switch
  ModeInForce in_force_;
  std::atomic<DoorMode> mode_ = DoorMode::normal;  // that of in_force_; written with the mutex held
};

}  // namespace achost
