// Who stands at the door.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "ac/message.h"
#include "door/journal/bookkeeping.h"
#include "door/services/settings_changes.h"
#include "door/services/user_store.h"
#include "refhost/subscriber.h"

namespace achost {

// Decides about each "identifier_new_card" {int64 "value", int64 "device_id", string "uuid"}, as a user of the bus. It
// sends "identifier_decision" with these fields, then string "outcome" and, of a card that is somebody's, int64
// "user_id"; the outcomes:
//   "opens"      the card is somebody's: "actuator_open_door" of door 1 follows
//   "unknown"    it is nobody's
//   "held_back"  actions are suppressed
//   "mode_awaited"  an operation mode is stored that lets fewer cards in, and it is not in force yet
//   "failed"     the users cannot be read; logged
//   "journal_unwritable"  the journal is required, and cannot be written
// Each is noted in the journal before anything comes of it.
// Actions are suppressed from "identifier_supress_actions" until as many "identifier_allow_actions" have come, so that
// a second enrollment which is refused does not end the suppression of the one that runs.
class IdentifierService {
 public:
  // All must outlive the service.
  IdentifierService(const UserStore& users, const SettingsChanges& changes, const Bookkeeping& books);

 private:
  struct Decision {
    std::string outcome;
    std::optional<std::int64_t> owner;
  };

  void identify(const ac::Message& message) const;
  void note(std::uint64_t card, const Decision& decision) const;
  Decision decide(std::uint64_t card) const;
  std::string outcome_for(bool known) const;
  bool is_stricter_mode_awaited() const;

  const UserStore& users_;
  const SettingsChanges& changes_;
  const Bookkeeping& books_;
  int suppressions_ = 0;            // used by the subscriber's delivery thread only
  refhost::Subscriber subscriber_;  // last: it stops using the others before they go
};

}  // namespace achost
