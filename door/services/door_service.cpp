#include "door/services/door_service.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <string>

#include "ac/config_util.h"
#include "refhost/log.h"
#include "refhost/relays.h"
#include "refhost/send.h"

namespace achost {
namespace {

void switch_relay(int relay, int value) {
  refhost::send("gpio_set_value", {{"gpio", ac::config_util::relay_gpio(relay)}, {"value", value}});
}

std::chrono::milliseconds open_time(int reason) {
  using std::chrono::milliseconds;
  if (reason == kRelayTest) {
    return kRelayTestTime;
  }
  const milliseconds time(ac::config_util::get_int("host", "door_open_time", true));
  const milliseconds silence(ac::config_util::get_int("uhf", "read_interval", true));
  const bool would_chatter = reason == kIdentification && time >= silence && time < silence + kSomePolls;
  return would_chatter ? silence + kSomePolls : time;
}

// What the relay did stands, also when there is no memory to tell it.
void tell_state(int open, int reason) {
  try {
    refhost::send("door_state", {{"id", kTheDoor}, {"open", open}, {"reason", reason}});
  } catch (const std::bad_alloc&) {
    refhost::log::error("door: there is no memory to tell whether it is open");
  }
}

}  // namespace

std::string text_of(DoorReason reason) {
  switch (reason) {
    case kIdentification:
      return "identification";
    case kExitRequest:
      return "exit request";
    case kRelayTest:
      return "test of the relay";
    case kByCommand:
      return "command";
    case kByMode:
      return "unlocked";
    default:
      return "reason " + std::to_string(reason);
  }
}

DoorService::DoorService(const Bookkeeping& books)
    : books_(books),
      timers_{{{"door_timer", [this] { close_when_due(); }}, {"door_timer_2", [this] { close_when_due(); }}}},
      subscriber_("door", {{"actuator_open_door", [this](ac::Message* message) { request(*message); }, false}}) {}

DoorService::~DoorService() {
  const std::lock_guard lock(mutex_);
  close();
}

void DoorService::request(const ac::Message& message) {
  int door = 0;
  int reason = 0;
  if (!message.get_int("id", &door) || !message.get_int("reason", &reason)) {
    refhost::log::warning("door: \"actuator_open_door\" without an int \"id\" or \"reason\"");
  } else if (door != kTheDoor) {
    refhost::log::warning("door: there is no door " + std::to_string(door) + ": there is door " +
                          std::to_string(kTheDoor));
  } else {
    open_or_prolong(reason);
  }
}

void DoorService::open_or_prolong(int reason) {
  const auto now = refhost::Timer::Clock::now();
  auto until = now + open_time(reason);
  const std::lock_guard lock(mutex_);
  if (!opening_.has_value()) {
    if (!open(reason)) {
      return;
    }
  } else if (reason == kRelayTest) {
    until = std::max(until, opening_->until);
  }
  opening_->requested = now;
  opening_->until = until;
  for (auto& timer : timers_) {
    timer.start(until);
  }
}

// With mutex_ held, of a door that is shut. Whether its relay may be used.
bool DoorService::open(int reason) {
  const int relay = ac::config_util::get_int("host", "door_relay", true);
  if (!refhost::relay_is_enabled(relay)) {
    const std::string cause = "relay " + std::to_string(relay) + " shows the tag detector";
    refhost::log::warning("door: stays shut, " + cause + ": give the door another one with host.door_relay");
    books_.note({.kind = Kind::refusal, .fields = {{"door", kTheDoor}, {"reason", cause}}});
    return false;
  }
  note_opening(relay, reason);
  begin_opening({.relay = relay, .reason = reason, .requested = {}, .until = {}});
  tell_state(1, reason);
  return true;
}

// With mutex_ held. Without memory for the relay's message the door is shut as before, and the next request opens it.
void DoorService::begin_opening(const Opening& opening) {
  opening_ = opening;
  is_open_ = true;
  try {
    switch_relay(opening.relay, 1);
  } catch (...) {
    opening_.reset();
    is_open_ = false;
    throw;
  }
}

void DoorService::stay_open(bool stays) {
  const std::lock_guard lock(mutex_);
  stays_ = stays;
  if (stays && !opening_.has_value()) {
    open(kByMode);
  } else if (!stays && opening_.has_value()) {
    for (auto& timer : timers_) {
      timer.start(opening_->until);
    }
  }
}

void DoorService::stay_open_if_possible() {
  const std::lock_guard lock(mutex_);
  if (stays_ && !opening_.has_value() &&
      refhost::relay_is_enabled(ac::config_util::get_int("host", "door_relay", true))) {
    open(kByMode);
  }
}

void DoorService::close_after_use(Time opened) {
  const std::lock_guard lock(mutex_);
  if (opening_.has_value() && !stays_ && opening_->requested <= opened) {
    close();
  }
}

void DoorService::relay_fell(int line) {
  const std::lock_guard lock(mutex_);
  if (stays_ && opening_.has_value() && ac::config_util::relay_gpio(opening_->relay) == line) {
    switch_relay(opening_->relay, 1);
  }
}

// Whoever wants out gets out also when there is no memory to say so.
void DoorService::note_opening(int relay, int reason) const {
  try {
    books_.note(
        {.kind = Kind::opening,
         .fields = {{"door", kTheDoor}, {"reason", text_of(static_cast<DoorReason>(reason))}, {"relay", relay}}});
  } catch (const std::bad_alloc&) {
    refhost::log::error("door: there is no memory to note that it opens");
  }
}

void DoorService::close_when_due(Time now) {
  const std::lock_guard lock(mutex_);
  if (opening_.has_value() && !stays_ && opening_->until <= now) {
    close();
  }
}

// With mutex_ held.
void DoorService::close() {
  if (opening_.has_value()) {
    switch_relay(opening_->relay, 0);
    tell_state(0, opening_->reason);
    opening_.reset();
    is_open_ = false;
  }
}

}  // namespace achost
