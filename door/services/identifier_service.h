// Who stands at the door.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ac/message.h"
#include "door/journal/bookkeeping.h"
#include "door/services/settings_changes.h"
#include "door/services/user_store.h"
#include "refhost/subscriber.h"

namespace achost {

// Decides about each "identifier_new_card" {int64 "value", int64 "device_id", string "uuid"}, as a user of the bus. It
// sends "identifier_decision" with these fields, then string "outcome" and, of a card that is somebody's, int64
// "user_id" and, if he has one, string "user_name"; the outcomes, of which the first that holds is told:
//   "failed"           the users cannot be read; logged
//   "held_back"        actions are suppressed
//   "unknown"          the card is nobody's
//   "blocked"          its user is blocked
//   "not_yet_valid"    his time has not come
//   "no_longer_valid"  his time is over
//   "door_locked"      the door's mode keeps cards out
//   "mode_awaited"     an operation mode is stored that lets fewer cards in, and it is not in force yet
//   "journal_unwritable"  the journal is required, and cannot be written
//   "opens"            "actuator_open_door" of door 1 follows
// Each is noted in the journal before anything comes of it, with what else would have held the card back ("also").
// Actions are suppressed from "identifier_supress_actions" until as many "identifier_allow_actions" have come, so that
// a second enrollment which is refused does not end the suppression of the one that runs.
class IdentifierService {
 public:
  // ms since 1970 UTC; called on the service's delivery thread.
  using WallClock = std::function<std::int64_t()>;

  // All must outlive the service. is_locked: whether the door's mode keeps cards out; called likewise.
  IdentifierService(
      const UserStore& users, const SettingsChanges& changes, const Bookkeeping& books,
      std::function<bool()> is_locked = [] { return false; }, WallClock now = system_time);

 private:
  struct Decision {
    std::vector<std::string> outcomes;  // the one that is told first
    std::optional<User> holder;
    std::string reason;  // of a failure
  };

  static std::int64_t system_time();
  void identify(const ac::Message& message) const;
  void note(std::uint64_t card, const Decision& decision) const;
  static std::vector<EntryField> fields_of(const Decision& decision);
  Decision decide(std::uint64_t card) const;
  std::vector<std::string> refusals_of(const std::optional<User>& holder) const;
  void add_refusals_of_user(const User& holder, std::vector<std::string>& refusals) const;
  bool is_stricter_mode_awaited() const;

  const UserStore& users_;
  const SettingsChanges& changes_;
  const Bookkeeping& books_;
  const std::function<bool()> is_locked_;
  const WallClock now_;
  int suppressions_ = 0;            // used by the subscriber's delivery thread only
  refhost::Subscriber subscriber_;  // last: it stops using the others before they go
};

}  // namespace achost
