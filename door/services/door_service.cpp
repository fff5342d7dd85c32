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

constexpr int kDoor = 1;

void switch_relay(int relay, int value) {
  refhost::send("gpio_set_value", {{"gpio", ac::config_util::relay_gpio(relay)}, {"value", value}});
}

std::chrono::milliseconds open_time(int reason) {
  return reason == kRelayTest ? kRelayTestTime
                              : std::chrono::milliseconds(ac::config_util::get_int("host", "door_open_time", true));
}

void tell_state(int open, int reason) {
  refhost::send("door_state", {{"id", kDoor}, {"open", open}, {"reason", reason}});
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
  } else if (door != kDoor) {
    refhost::log::warning("door: there is no door " + std::to_string(door) + ": there is door " +
                          std::to_string(kDoor));
  } else {
    open_or_prolong(reason);
  }
}

void DoorService::open_or_prolong(int reason) {
  auto until = refhost::Timer::Clock::now() + open_time(reason);
  const std::lock_guard lock(mutex_);
  if (opening_.has_value()) {
    until = opening_->until = reason == kRelayTest ? std::max(until, opening_->until) : until;
  } else {
    const int relay = ac::config_util::get_int("host", "door_relay", true);
    if (!refhost::relay_is_enabled(relay)) {
      const std::string cause = "relay " + std::to_string(relay) + " shows the tag detector";
      refhost::log::warning("door: stays shut, " + cause + ": give the door another one with host.door_relay");
      books_.note({.kind = Kind::refusal, .fields = {{"door", kDoor}, {"reason", cause}}});
      return;
    }
    note_opening(relay, reason);
    opening_ = {.relay = relay, .reason = reason, .until = until};
    switch_relay(relay, 1);
    tell_state(1, reason);
  }
  for (auto& timer : timers_) {
    timer.start(until);
  }
}

// Whoever wants out gets out also when there is no memory to say so.
void DoorService::note_opening(int relay, int reason) const {
  try {
    books_.note({.kind = Kind::opening,
                 .fields = {{"door", kDoor}, {"reason", text_of(static_cast<DoorReason>(reason))}, {"relay", relay}}});
  } catch (const std::bad_alloc&) {
    refhost::log::error("door: there is no memory to note that it opens");
  }
}

void DoorService::close_when_due() {
  const std::lock_guard lock(mutex_);
  if (opening_.has_value() && opening_->until <= refhost::Timer::Clock::now()) {
    close();
  }
}

// With mutex_ held.
void DoorService::close() {
  if (opening_.has_value()) {
    switch_relay(opening_->relay, 0);
    tell_state(0, opening_->reason);
    opening_.reset();
  }
}

}  // namespace achost
