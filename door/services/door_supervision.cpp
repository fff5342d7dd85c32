#include "door/services/door_supervision.h"

#include <utility>

namespace achost {
namespace {

using std::chrono::steady_clock;
using std::chrono::system_clock;

constexpr std::chrono::seconds kLookPeriod(1);

}  // namespace

DoorSupervision::DoorSupervision(DoorService& door, const GpioService& gpio, Alarms& alarms, SettingsValues settings,
                                 ScheduleLookup is_within)
    : door_(door),
      gpio_(gpio),
      settings_(std::move(settings)),
      modes_({.settings = settings_,
              .is_within = std::move(is_within),
              .alarms = alarms,
              .stay_open = [&door](bool stays) { door.stay_open(stays); }}),
      watch_({.settings = settings_,
              .alarms = alarms,
              .is_released = [&door] { return door.is_open(); },
              .close_after_use = [&door](DoorWatch::Time opened) { door.close_after_use(opened); }}),
      timer_("door_look", [this] { look(); }),
      subscriber_("door_watch", {{"gpio_notified", [this](ac::Message* message) { line_changed(*message); }, false},
                                 {"door_state", [this](ac::Message* message) { lock_moved(*message); }, false}}) {}

void DoorSupervision::begin() {
  if (!settings_("host", "mode_switch").empty()) {
    modes_.switched(gpio_.lines().level(kModeSwitch) != 0);
  }
  watch_.begin([this](int line) { return gpio_.lines().level(line); }, steady_clock::now());
  has_begun_ = true;
  look();
}

void DoorSupervision::look_soon() { timer_.start(steady_clock::now()); }

void DoorSupervision::go_by_settings() {
  modes_.end_command();
  look();
}

void DoorSupervision::begin_for(DoorMode mode, std::chrono::milliseconds length) {
  modes_.begin_for(mode, length, steady_clock::now());
  look();
}

DoorSupervision::Report DoorSupervision::report() const {
  return {.is_lock_open = door_.is_open(), .mode = modes_.report(steady_clock::now()), .contacts = watch_.report()};
}

void DoorSupervision::line_changed(const ac::Message& message) {
  int line = -1;
  int level = 0;
  std::int64_t at = 0;
  message.get_int("gpio", &line);
  message.get_int("value", &level);
  message.get_int64("at", &at);
  if (line == kModeSwitch && !settings_("host", "mode_switch").empty()) {
    modes_.switched(level != 0);
    look();
  } else if (level == 0 && modes_.mode() == DoorMode::unlocked) {
    door_.relay_fell(line);
  }
  watch_.line_changed(line, level, DoorWatch::Time(std::chrono::nanoseconds(at)));
}

void DoorSupervision::lock_moved(const ac::Message& message) {
  int is_open = 0;
  int reason = 0;
  message.get_int("open", &is_open);
  message.get_int("reason", &reason);
  watch_.lock_moved(is_open != 0, reason, steady_clock::now());
}

void DoorSupervision::look() {
  if (!has_begun_) {
    return;
  }
  const auto now = steady_clock::now();
  timer_.start(now + kLookPeriod);
  modes_.look(now, system_clock::now());
  door_.stay_open_if_possible();
  watch_.look(now);
}

}  // namespace achost
