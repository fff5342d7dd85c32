// What a document of what the door is to be like makes of the rows of users, cards and schedules.
#pragma once

#include <cstdint>

#include "door/services/desired_document.h"
#include "door/services/user_store.h"

namespace achost {

struct DesiredCounts {
  std::int64_t users = 0;  // made or changed
  std::int64_t users_removed = 0;
  std::int64_t cards = 0;  // given, from nobody or somebody
  std::int64_t cards_removed = 0;
  bool schedules = false;  // are others
};

// Within a transaction that writes: have the rows as the document wants them. With is_difference, users and cards that
// it does not tell of stay. Throws Failure where a user has a schedule that is not there.
UserStore::Rewritten make_as_desired(SQLite::Database& open, const DesiredDocument& document, bool is_difference,
                                     DesiredCounts& counts);

}  // namespace achost
