// Entries about what somebody has changed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "door/journal/entry.h"

namespace achost {

// Each has the maker of the calling thread's block (MakerScope); without one the device has changed it by itself. To be
// called on the thread that makes the change.

// setting: "uhf.region".
Entry setting_change(const std::string& setting, const std::string& value, const std::string& previous_value);

// change: "made", "changed", "blocked", "removed"; fields: what there is to say of it.
Entry user_change(const std::string& change, std::int64_t user, std::vector<EntryField> fields = {});

// change: "added" or "removed"; user: whose it is, or was.
Entry card_change(const std::string& change, std::uint64_t card, std::optional<std::int64_t> user);

// what: "open", or a mode, which is to last for so many seconds.
Entry door_command(const std::string& what, std::optional<std::int64_t> seconds = {});

}  // namespace achost
