// What a person at the centre can ask for. Each prints what came of it, and answers the status to end with; all throw
// cli::Failure.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "gateway/fleet/centre.h"

namespace fleet {

using Words = std::vector<std::string>;

struct PushOptions {
  std::string people;
  std::string schedules;
  std::string settings;
  Words to;
  bool dry_run = false;
  bool anew = false;
  bool is_new = false;
  bool remove_most = false;  // also where fewer than half of the people stay, or nobody
  std::int64_t wait = 30;    // s for the doors' answers
};

// as_json: lines for a program; a table or sentences otherwise. patterns: of doors; none are all.
int list_doors(Centre& centre, const Words& patterns, bool as_json);
int watch(Centre& centre, const Words& patterns, bool as_json);
int push(Centre& centre, const PushOptions& options, bool as_json);
int show_drift(Centre& centre, const Words& patterns, bool as_json);

// card: as a person writes it, or an EPC; span: how far back, in ms.
int tell_why(Centre& centre, const std::string& door, const std::string& card, std::int64_t span, bool as_json);
int open_door(Centre& centre, const std::string& door, bool as_json);

// seconds: 0 for good.
int set_mode(Centre& centre, const std::string& pattern, const std::string& mode, std::int64_t seconds, bool as_json);

}  // namespace fleet
