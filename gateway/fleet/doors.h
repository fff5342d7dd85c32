// The doors that have told the broker of themselves.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "gateway/fleet/centre.h"
#include "gateway/fleet/json.h"

namespace fleet {

struct Door {
  Json state = Json::object();          // as it told it last
  std::int64_t seen = 0;                // ms since 1970: it was there then, and perhaps a minute more; 0: unknown
  std::optional<std::int64_t> desired;  // the revision that it is to have

  bool is_online() const { return flag_in(state, "online"); }
};

using Doors = std::map<std::string, Door>;

// Waits for all that is retained.
Doors doors_of(Centre& centre);

// The doors that the patterns of a shell (gate-*) name, all where there are none. Throws cli::Failure (kUsage) for one
// that names nobody, with the names that there are; is_new: a whole name may be of a door that is yet to come.
std::set<std::string> named_by(const std::vector<std::string>& patterns, const Doors& doors, bool is_new = false);

// For a person. width: of the terminal; where the table is wider each door gets a sentence.
std::string doors_as_table(const Doors& doors, std::size_t width);
std::string doors_as_json(const Doors& doors);

}  // namespace fleet
