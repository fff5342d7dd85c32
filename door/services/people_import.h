// Storing many users and cards at once.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "door/services/people_rows.h"
#include "door/services/user.h"
#include "door/services/user_store.h"

namespace achost {

struct ImportOptions {
  bool replace = false;  // users and cards that the import does not name go
  bool move = false;     // a card may be somebody else's before; with replace it may anyway
  bool dry_run = false;  // nothing is stored
};

struct ImportOutcome {
  struct Counts {
    std::int64_t added = 0;
    std::int64_t changed = 0;
    std::int64_t moved = 0;  // cards, from one user to another
    std::int64_t removed = 0;
    std::int64_t unchanged = 0;
  };
  Counts users;
  Counts cards;
  std::vector<std::string> lines;  // with dry_run: what would become of whom, a line each

  // For a person, one line.
  std::string text() const;
};

// What is to be done so that what is stored is as the import wants it. Users that it names get what it says of them and
// keep the rest; nobody goes who is not named, unless it is to replace all. now: ISO 8601, when a card counts as
// enrolled of which it does not say so. Throws Failure (kFailed), which begins with NAME:LINE, for a card that is
// somebody else's, and for a user who would not be right with what is stored of him.
std::pair<PeopleChange, ImportOutcome> plan_import(const PeopleImport& import, const People& stored,
                                                   const ImportOptions& options, const std::string& now);

// The same, in one transaction with what it is to do: all or nothing.
ImportOutcome import_people(UserStore& store, const PeopleImport& import, const ImportOptions& options);

}  // namespace achost
