// The door's contacts: what they tell, and what comes of it.
#pragma once

#include <functional>
#include <mutex>
#include <optional>

#include "door/base/gpio_plan.h"
#include "door/services/alarms.h"
#include "door/services/door_contact.h"

namespace achost {

// What the door does is told as "door_contact" {int "id", string "state"}. Alarms: "door_forced" and "door_held" until
// the door is shut, "tamper" while the case is open. The time is a parameter. Any thread may call.
class DoorWatch {
 public:
  using Time = DoorContact::Time;

  struct Needs {
    SettingsValues settings;
    Alarms& alarms;                             // outlive this
    std::function<bool()> is_released;          // the lock is open
    std::function<void(Time)> close_after_use;  // the door was opened then, and is shut again
  };

  explicit DoorWatch(Needs needs);

  // The lines have these levels; a contact counts where a setting gives it a line, a virtual one too.
  void begin(const std::function<int(int line)>& level, Time now);

  // Before begin() these do nothing, and a change from before it has no effect.
  void line_changed(int line, int level, Time at);
  void lock_moved(bool is_open, int reason, Time now);
  void look(Time now);

  struct Report {
    std::optional<ContactState> contact;  // nothing where there is none
    std::optional<bool> is_case_open;
  };
  Report report() const;

 private:
  DoorContact::Limits limits() const;
  void tell(ContactState state) const;
  void tell_of_case(bool is_open);

  const Needs needs_;
  mutable std::mutex mutex_;  // guards everything below, and the order of what is told
  Time begun_;
  std::optional<DoorContact> contact_;
  std::optional<bool> is_case_open_;
};

}  // namespace achost
