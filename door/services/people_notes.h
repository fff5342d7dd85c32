// What the journal is told of changes of users, cards and schedules.
#pragma once

#include <optional>
#include <vector>

#include "door/journal/entry.h"
#include "door/services/schedule.h"
#include "door/services/user.h"

namespace achost {

// Of a change of more users, cards, schedules and holidays there is one entry with their numbers: single ones would
// drive out what happened at the door.
inline constexpr std::size_t kMostSingleNotes = 1000;

// To be called on the thread that makes the change (MakerScope). Each tells what is different, and nothing of what is
// as before.

// before: nothing of a new one.
std::vector<Entry> notes_of(const std::optional<User>& before, const User& after);

// cards: his, that go with him.
std::vector<Entry> notes_of_removal(const User& user, const std::vector<std::uint64_t>& cards);

std::vector<Entry> notes_of(const People& before, const PeopleChange& change);
std::vector<Entry> notes_of(const Schedules& before, const Schedules& after);

}  // namespace achost
