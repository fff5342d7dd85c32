// Who stands at the door.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "ac/message.h"
#include "door/journal/bookkeeping.h"
#include "door/services/clock_trust.h"
#include "door/services/settings_changes.h"
#include "door/services/user_store.h"
#include "door/services/visits.h"
#include "refhost/subscriber.h"

namespace achost {

// Decides about each "identifier_new_card" {int64 "value", int64 "device_id", string "uuid"}, as a user of the bus. It
// sends "identifier_decision" with these fields, then string "outcome", the facts that the journal has of it and, of a
// card that is somebody's, int64 "user_id" and, if he has one, string "user_name"; the outcomes, of which the first
// that holds is told:
//   "failed"           the users cannot be read; logged
//   "held_back"        actions are suppressed
//   "unknown"          the card is nobody's
//   "still_here"       it has opened, and has not left since: of a visit this is told once a minute at most
//   "blocked"          its user is blocked
//   "clock_untrusted"  he has a rule of time, the clock cannot be right, and then none of these is to come
//   "not_yet_valid"    his time has not come
//   "no_longer_valid"  his time is over
//   "outside_schedule" no window of his schedule is open
//   "too_soon_after_entry"  less than his pause lies between his last entry of this run and this one
//   "door_locked"      the door's mode keeps cards out
//   "mode_awaited"     an operation mode is stored that lets fewer cards in, and it is not in force yet
//   "journal_unwritable"  the journal is required, and cannot be written
//   "opens"            "actuator_open_door" of door 1 follows
// Each is noted in the journal before anything comes of it, with what else would have held the card back ("also").
// Actions are suppressed from "identifier_supress_actions" until as many "identifier_allow_actions" have come, so that
// a second enrollment which is refused does not end the suppression of the one that runs.
class IdentifierService {
 public:
  // A moment by both clocks: in ms since 1970 UTC, and by the one that is never set.
  struct Moment {
    std::int64_t wall = 0;
    Visits::Time steady{};

    // What the wall clock shows at that time, or showed.
    std::int64_t wall_at(Visits::Time time) const {
      return wall + std::chrono::duration_cast<std::chrono::milliseconds>(time - steady).count();
    }
  };
  using Clocks = std::function<Moment()>;  // called on the service's delivery thread

  // How often it is said of a visit that its card does not open.
  static constexpr std::chrono::minutes kBetweenWords{1};

  // What it decides by; all must outlive the service.
  struct Needs {
    const UserStore& users;
    const SettingsChanges& changes;
    const Bookkeeping& books;
    Visits& visits;
    const ClockTrust& clock;
    std::function<bool()> is_locked;  // whether the door's mode keeps cards out; called on the delivery thread
  };

  static Moment system_clocks();

  explicit IdentifierService(const Needs& needs, Clocks clocks = system_clocks);

 private:
  struct Decision {
    std::vector<std::string> outcomes = {};  // the one that is told first
    std::optional<User> holder = {};
    std::vector<EntryField> facts = {};       // of the outcomes
    std::optional<Visits::Visit> visit = {};  // that has not ended

    void refuse(const char* outcome, std::vector<EntryField> its_facts = {});
  };

  void identify(const ac::Message& message);
  void note(std::uint64_t card, const Decision& decision) const;
  static std::vector<EntryField> fields_of(const Decision& decision);
  Decision decide(std::uint64_t card, const Moment& now) const;
  void add_refusals(std::uint64_t card, const Moment& now, Decision& decision) const;
  void add_refusals_of_user(const Moment& now, Decision& decision) const;
  void add_refusals_of_time(const Moment& now, Decision& decision) const;
  bool is_to_be_told(const Decision& decision, const Moment& now) const;
  void remember(std::uint64_t card, const Decision& decision, const Moment& now);
  bool is_stricter_mode_awaited() const;

  const Needs needs_;
  const Clocks clocks_;
  // The next two are used by the subscriber's delivery thread only.
  int suppressions_ = 0;
  std::unordered_map<std::int64_t, Visits::Time> pauses_;  // of users who have entered: their ends
  refhost::Subscriber subscriber_;                         // last: it stops using the others before they go
};

}  // namespace achost
