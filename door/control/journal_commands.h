// What can be asked about the journal.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "door/control/stores.h"
#include "door/journal/journal.h"

namespace achost {

// journal_follow, and journal_query: the entries that the filter lets pass ("kinds", a "card" as a decimal text, and as
// numbers "user", "since", "until" and "last"), so many as one answer holds, as lines of journal_rows.h; or packed, in
// a form that "code" tells, with the "names" of their users. It says between which numbers the others are, "after" and
// "to", and whether there are "more": request_behind() gets them. With "wait" it waits a while where nothing is behind
// "after" yet.
std::vector<ControlCommand> journal_commands(Stores& stores);

// The kind of that name. Throws Failure (kUsage), which names all.
Kind journal_kind_of(const std::string& name);

// The request for the first of them.
Json journal_request(const JournalQuery& query);

// Hand the entries of an answer to a function. Throws std::runtime_error when they are not as this program knows them.
void unpack_journal(const Json& answer, std::string_view bytes, const std::function<void(const JournalEntry&)>& take);

// The names of the users in an answer, of those that have one.
std::map<std::int64_t, std::string> names_in(const Json& answer);

}  // namespace achost
