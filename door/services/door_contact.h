// What a door does, by its contact and its lock.
#pragma once

#include <chrono>
#include <optional>
#include <string_view>
#include <vector>

namespace achost {

enum class ContactState {
  closed,
  opened,
  forced,        // opened without a release
  held_warning,  // it stands open for too long
  held_alarm,    // and still does
  not_used,      // it was released, and nobody has opened it; the door is shut then
};

// For a program: "held_warning".
std::string_view name_of(ContactState state);

// The time is a parameter; for one thread at a time.
class DoorContact {
 public:
  using Time = std::chrono::steady_clock::time_point;

  struct Limits {
    std::chrono::milliseconds grace{1000};  // after the lock has closed: whoever pulls the door then was let through
    std::chrono::seconds warning{30};       // that it stands open while its lock is closed; 0: never
    std::chrono::seconds alarm{60};         // likewise
    bool opens_by_handle = false;           // without the lock
  };

  // As it is found. A door that stands open then was not forced as far as anybody knows.
  DoorContact(bool is_open, Time now);

  // The lock opens, or goes on to be open.
  void released();

  // The lock closes. is_for_somebody: the release was, so that he was to open the door.
  void locked(bool is_for_somebody, Time now);

  // The contact's level; what that comes to.
  std::optional<ContactState> moved(bool is_open, Time at, const Limits& limits);

  // Time has passed; what has come of that.
  std::vector<ContactState> look(Time now, const Limits& limits);

  // How the door stands: any but not_used.
  ContactState state() const { return state_; }

  // Since when the door is open, if it is.
  Time opened() const { return opened_; }

 private:
  bool is_let_through(Time at, const Limits& limits) const;

  ContactState state_;
  Time opened_;
  bool is_released_ = false;
  bool was_used_ = false;         // the door was open during the release
  std::optional<Time> locked_;    // the last time
  std::optional<Time> not_used_;  // likewise, when nobody has opened the door so far
};

}  // namespace achost
