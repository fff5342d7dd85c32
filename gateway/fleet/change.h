// What becomes different from one document to another.
#pragma once

#include <string>
#include <vector>

#include "gateway/fleet/document.h"

namespace fleet {

struct Change {
  struct Counts {
    std::size_t added = 0;
    std::size_t changed = 0;
    std::size_t removed = 0;
  };
  Counts users;
  Counts schedules;  // rows; none is changed, another takes its place
  Counts settings;
  std::vector<std::string> lines;  // for a person, one each

  // For a person, in one line: "users: 1 added, 2 removed; settings: 1 changed"; "nothing".
  std::string text() const;
};

Change change_between(const Document& before, const Document& after);

}  // namespace fleet
