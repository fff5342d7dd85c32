// Entries of doors' journals, as they come to the centre.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "gateway/fleet/json.h"

namespace fleet {

// A text from a door, such that it moves nothing on a terminal; "-" of an empty one.
std::string shown(const std::string& text);

// For a person: "2026-11-22 10:40:11  gate-1  identification  outcome=opens user=7".
std::string entry_line(const std::string& door, const Json& entry);

// How a door differs from what it is to be: "user 7: name is "B", not "A"", from desired_state's line.
std::string drift_line(const Json& drift);

// An entry comes again after each trouble, and ahead of its turn while older ones are on their way.
class Doubles {
 public:
  // Whether it is the first of its door, boot and number.
  bool is_new(std::string_view door, const Json& entry);

 private:
  static constexpr std::size_t kKept = 4096;  // numbers a door

  std::map<std::string, std::set<std::pair<std::int64_t, std::string>>, std::less<>> seen_;
};

}  // namespace fleet
