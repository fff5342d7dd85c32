// What doors are to have: made of files, compared with what they are to have so far, and told to the broker.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "gateway/fleet/centre.h"
#include "gateway/fleet/change.h"
#include "gateway/fleet/document.h"
#include "gateway/fleet/parts.h"

namespace fleet {

// What is given; what is not stays as a door is to have it so far.
struct Wanted {
  std::optional<std::map<std::int64_t, std::string>> users;
  std::optional<std::set<std::string>> schedules;
  std::optional<std::map<std::string, std::string>> settings;
};

// What a door gets.
struct Plan {
  Manifest before;  // revision 0 without any
  Manifest after;   // the same one when nothing changes
  Parts parts;      // of it
  Change change;
  std::size_t users_before = 0;
  std::size_t users_after = 0;

  bool is_nothing() const { return before.revision == after.revision; }

  // Fewer than half of the users stay, or nobody at all: a table that was written by half looks so.
  bool removes_most() const;

  std::size_t parts_sent() const;
  std::size_t bytes_sent() const;
};

class Push {
 public:
  // anew: what the broker has is not looked at.
  Push(Centre& centre, Wanted wanted, bool anew) : centre_(centre), wanted_(std::move(wanted)), anew_(anew) {}

  // For each of the doors. Throws cli::Failure.
  std::map<std::string, Plan> plan(const std::set<std::string>& doors);

  // New parts, then the manifest, so that a door that reads it finds all of them; then the old parts go.
  void tell(const std::string& door, const Plan& plan);

  // What the doors say of these revisions: nothing yet of those that are not in it.
  std::map<std::string, Json> answers(const std::map<std::string, std::int64_t>& revisions,
                                      std::chrono::milliseconds patience);

 private:
  std::map<std::string, Manifest> manifests(const std::set<std::string>& doors);
  void fetch(const std::string& door, const Manifest& manifest, const Parts& known);
  Document stored(const Manifest& manifest, const Parts& known) const;
  Plan plan_for(const std::string& door, const Manifest& before, const Parts& users);

  Centre& centre_;
  const Wanted wanted_;
  const bool anew_;
  Parts fetched_;  // parts that the broker has: doors often share them
};

}  // namespace fleet
