// The journal's entries as JSON.
#pragma once

#include <vector>

#include "door/control/control.h"
#include "door/control/stores.h"
#include "door/journal/entry.h"

namespace achost {

// So many are sent at a time.
inline constexpr std::size_t kEntriesInAPart = 200;

// Send lines {"entry"}: "number", "time", "at" in ms since 1970 UTC, "kind", "user" with his "name" of now, "card" as a
// text, "fields", "clock_trusted", "monotonic_ms" and "boot". False when the client has gone or does not read.
bool send_entries(const std::vector<JournalEntry>& entries, UserStore& users, ControlStream& stream);

}  // namespace achost
