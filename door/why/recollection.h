// What a recording of the line and the bus knows about a card: the same as a door that ran then.
#pragma once

#include <cstdint>
#include <filesystem>
#include <istream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "door/why/explain.h"

namespace achost::why {

// Times are ms since 1970 UTC; those of a recording that does not say when it was made count from a midnight.
struct Recollection {
  Evidence evidence;                          // the sightings of the card alone
  std::map<std::int64_t, std::string> names;  // of users
  std::int64_t begins = 0;
  std::int64_t ends = 0;
  std::optional<std::int64_t> settings_known_from;  // nothing: they are not known at all
  std::vector<std::string> unknown;                 // what it does not know, in a line each, for a person
};

// Reads the recording line by line; what it holds meanwhile is bounded by what the answer needs. question: its card or
// EPC alone counts. Throws Failure (kUsage) that names the file and the line when it is no recording, or damaged; or
// when it takes another question to answer.
Recollection recall(const std::filesystem::path& file, const Question& question);
Recollection recall(std::istream& in, const std::string& name, const Question& question);

}  // namespace achost::why
