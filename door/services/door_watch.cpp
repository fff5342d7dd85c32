#include "door/services/door_watch.h"

#include <string>
#include <utility>

#include "door/services/door_service.h"
#include "refhost/send.h"

namespace achost {
namespace {

constexpr const char* kForcedAlarm = "door_forced";
constexpr const char* kHeldAlarm = "door_held";
constexpr const char* kTamperAlarm = "tamper";

}  // namespace

DoorWatch::DoorWatch(Needs needs) : needs_(std::move(needs)) {}

void DoorWatch::begin(const std::function<int(int line)>& level, Time now) {
  const std::lock_guard lock(mutex_);
  begun_ = now;
  if (!needs_.settings("host", "door_contact").empty()) {
    contact_.emplace(level(kDoorContact) != 0, now);
  }
  if (!needs_.settings("host", "tamper_contact").empty()) {
    tell_of_case(level(kTamperContact) != 0);
  }
}

void DoorWatch::line_changed(int line, int level, Time at) {
  const std::lock_guard lock(mutex_);
  if (at < begun_) {
    return;
  }
  if (line == kTamperContact && is_case_open_.has_value()) {
    tell_of_case(level != 0);
  } else if (line == kDoorContact && contact_.has_value()) {
    if (needs_.is_released()) {
      contact_->released();  // its message may still be on the way
    }
    if (const auto state = contact_->moved(level != 0, at, limits())) {
      tell(*state);
      if (*state == ContactState::closed && needs_.settings("host", "door_relock") == "closed") {
        needs_.close_after_use(contact_->opened());
      }
    }
  }
}

void DoorWatch::lock_moved(bool is_open, int reason, Time now) {
  const std::lock_guard lock(mutex_);
  if (!contact_.has_value()) {
    return;
  }
  if (is_open) {
    contact_->released();
  } else {
    contact_->locked(reason != kRelayTest && reason != kByMode, now);
  }
}

void DoorWatch::look(Time now) {
  const std::lock_guard lock(mutex_);
  if (contact_.has_value()) {
    for (const auto state : contact_->look(now, limits())) {
      tell(state);
    }
  }
}

DoorWatch::Report DoorWatch::report() const {
  const std::lock_guard lock(mutex_);
  return {.contact = contact_.has_value() ? std::optional(contact_->state()) : std::nullopt,
          .is_case_open = is_case_open_};
}

DoorContact::Limits DoorWatch::limits() const {
  const auto number = [this](const char* key) { return std::stoi(needs_.settings("host", key)); };
  return {.grace = std::chrono::milliseconds(number("door_grace")),
          .warning = std::chrono::seconds(number("door_held_warning")),
          .alarm = std::chrono::seconds(number("door_held_alarm")),
          .opens_by_handle = number("door_handle_opens") != 0};
}

// With mutex_ held.
void DoorWatch::tell(ContactState state) const {
  refhost::send("door_contact", {{"id", kTheDoor}, {"state", std::string(name_of(state))}});
  if (state == ContactState::forced) {
    needs_.alarms.raise(kForcedAlarm, "the door was opened without a release: look who was there, and shut it");
  } else if (state == ContactState::held_alarm) {
    needs_.alarms.raise(kHeldAlarm, "the door has been left open: shut it");
  } else if (state == ContactState::closed) {
    needs_.alarms.clear(kForcedAlarm);
    needs_.alarms.clear(kHeldAlarm);
  }
}

// With mutex_ held.
void DoorWatch::tell_of_case(bool is_open) {
  is_case_open_ = is_open;
  is_open ? needs_.alarms.raise(kTamperAlarm, "the case is open: look at what was done there, and shut it")
          : needs_.alarms.clear(kTamperAlarm);
}

}  // namespace achost
