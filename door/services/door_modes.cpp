#include "door/services/door_modes.h"

#include <utility>

#include "door/services/door_service.h"
#include "refhost/send.h"

namespace achost {
namespace {

constexpr const char* kScheduleAlarm = "door_schedule";

}  // namespace

DoorModes::DoorModes(Needs needs) : needs_(std::move(needs)) {}

void DoorModes::switched(bool is_on) {
  const std::lock_guard lock(mutex_);
  is_switched_on_ = is_on;
}

void DoorModes::begin_for(DoorMode mode, std::chrono::milliseconds length, Time now) {
  const std::lock_guard lock(mutex_);
  for_a_time_ = {.mode = mode, .until = now + length, .stored = needs_.settings("host", "door_mode")};
}

void DoorModes::end_command() {
  const std::lock_guard lock(mutex_);
  for_a_time_.reset();
}

void DoorModes::look(Time now, WallTime wall) {
  std::string missing;
  const std::lock_guard lock(mutex_);
  ModeWishes wishes{.command = commanded(now)};
  if (is_switched_on_.value_or(false)) {
    wishes.input = door_mode_of(needs_.settings("host", "mode_switch_mode"));
  }
  wishes.is_time_to_lock = is_time("locked_schedule", wall, missing);
  wishes.is_time_to_unlock = is_time("unlocked_schedule", wall, missing);
  missing.empty() ? needs_.alarms.clear(kScheduleAlarm) : needs_.alarms.raise(kScheduleAlarm, missing);
  bring_into_force(mode_in_force(wishes));
}

// With mutex_ held.
std::optional<DoorMode> DoorModes::commanded(Time now) {
  const auto stored = needs_.settings("host", "door_mode");
  if (for_a_time_.has_value() && (now >= for_a_time_->until || stored != for_a_time_->stored)) {
    for_a_time_.reset();
  }
  return for_a_time_.has_value() ? std::optional(for_a_time_->mode) : door_mode_of(stored);
}

bool DoorModes::is_time(const char* setting, WallTime wall, std::string& missing) const {
  const auto schedule = needs_.settings("host", setting);
  const auto is_within = schedule.empty() ? std::optional(false) : needs_.is_within(schedule, wall);
  if (!is_within.has_value()) {
    missing += (missing.empty() ? "host." : "; host.") + std::string(setting) + " names the schedule \"" + schedule +
               "\", and there is none: the door is as outside of it";
  }
  return is_within.value_or(false);
}

// With mutex_ held. Cards are kept out first.
void DoorModes::bring_into_force(const ModeInForce& wanted) {
  if (wanted == in_force_) {
    return;
  }
  mode_ = wanted.mode;
  if ((wanted.mode == DoorMode::unlocked) != (in_force_.mode == DoorMode::unlocked)) {
    needs_.stay_open(wanted.mode == DoorMode::unlocked);
  }
  in_force_ = wanted;
  refhost::send(
      "door_mode",
      {{"id", kTheDoor}, {"mode", std::string(name_of(wanted.mode))}, {"by", std::string(name_of(wanted.by))}});
}

DoorModes::Report DoorModes::report(Time now) const {
  using std::chrono::milliseconds;
  const std::lock_guard lock(mutex_);
  Report report{.in_force = in_force_};
  if (for_a_time_.has_value() && now < for_a_time_->until) {
    report.left = std::chrono::ceil<milliseconds>(for_a_time_->until - now);
  }
  return report;
}

}  // namespace achost
