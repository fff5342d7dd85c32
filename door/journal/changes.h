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

// change: "made", "changed", "blocked", "unblocked", "removed", or "imported" of many, who are not named one by one;
// fields: what there is to say of it.
Entry user_change(const std::string& change, std::optional<std::int64_t> user, std::vector<EntryField> fields = {});

// change: "made", "changed", "removed", or "imported" of many; fields: "schedule" or "holiday", and "text", what it
// says.
Entry schedule_change(const std::string& change, std::vector<EntryField> fields);

// That entry in words, without who: "changed schedule office: mon-fri 08:00-18:00".
std::string text_of_schedule_change(const Entry& entry);

// change: "added", "changed" or "removed"; user: whose it is, or was.
Entry card_change(const std::string& change, std::uint64_t card, std::optional<std::int64_t> user);

// what: "open", a mode with the "seconds" that it is to last, "exit", "enroll", "line", "relay_test", "borrow",
// "try_power", "restore" or "desired".
Entry command_given(const std::string& what, std::vector<EntryField> fields = {},
                    std::optional<std::int64_t> user = {});

}  // namespace achost
