// Tells the visits which cards are read, and the bus which have left.
#pragma once

#include <vector>

#include "door/services/visits.h"
#include "line/conversation.h"
#include "refhost/settings_store.h"

namespace achost {

// Of each answer, also of readings that the plug-in does not announce, and as soon as it is there: an announcement may
// follow at once.
class VisitFeed {
 public:
  // Both must outlive it.
  VisitFeed(const refhost::SettingsStore& settings, Visits& visits) : settings_(settings), visits_(visits) {}

  // A question of the plug-in's that is done with. The line's thread.
  void saw(const line::Exchange& exchange);

  // Regularly: "card_left" of each visit that is over. Any one thread.
  void tell_of_departures();

 private:
  const refhost::SettingsStore& settings_;
  Visits& visits_;
  std::vector<Visits::Card> cards_;  // empty: its room is used again
};

}  // namespace achost
