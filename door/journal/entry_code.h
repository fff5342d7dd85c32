// Entries as bytes and as text.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "door/journal/entry.h"

namespace achost {

// The fields as one JSON object in their order: {"outcome":"opens","polls":3}. A text that is longer than an entry can
// bear is cut.
std::string json_of_fields(const std::vector<EntryField>& fields);

// Back again; what is no object of texts and numbers has no fields.
std::vector<EntryField> fields_of_json(std::string_view json);

// Of the bytes below, for whoever gets them from another process: other bytes have another number.
inline constexpr int kEntryCode = 1;

// An entry as the spool holds it, in the machine's own byte order: it outlives the process and not the machine's run.
// The number can be written later.
std::string encoded(const Entry& entry, const EntryTime& time, std::string_view boot, std::int64_t number = 0);
void set_number(std::string& code, std::int64_t number);

// Nothing when these are no such bytes.
std::optional<JournalEntry> decoded(std::string_view code);

}  // namespace achost
