// How things stand at a moment: what a witness has to know that begins then.
#pragma once

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "door/why/witness.h"

namespace achost::why {

// Settings of the module by name, as they are stored: those that kSettingNames has.
using SettingTexts = std::map<std::string, std::string, std::less<>>;

inline constexpr std::string_view kSettingNames[] = {
    "operation_mode",          "trig_idle",      "trigger_timeout",     "read_interval",
    "read_interval_diff_tags", "probe_interval", "identification_bits", "reader_type"};

WitnessSettings settings_of(const SettingTexts& texts);

// As a door keeps it up, and notes it in the line's recording every now and then: a recording begins anywhere.
struct Standing {
  static constexpr std::size_t kMostAnnounced = 64;  // the latest; what is older is left out
  static constexpr std::size_t kMostEdges = 2;       // that tell which of the input's changes count

  struct ReaderState {
    std::string state;
    std::string cause;
    Time since;

    bool operator==(const ReaderState&) const = default;
  };

  bool is_start = false;  // the witness begins: nothing was before
  SettingTexts settings{};
  int trigger_line = -1;
  std::optional<int> level{};                     // of the input
  std::deque<std::pair<Time, int>> edges{};       // its latest changes
  std::deque<std::pair<Time, Card>> announced{};  // lately
  std::optional<ReaderState> reader{};            // the latest that was told

  void changed_to(int new_level, Time at);
  void was_announced(Card card, Time at);

  bool operator==(const Standing&) const = default;
};

// A note of a recording: "standing", and an object {"start", "settings": {name: text}, "trigger_line", "level" (or
// null), "edges": [[time, level]], "announced": [[time, card]], "reader": {"state", "cause", "since"} (or null)}; times
// in microseconds since the machine's start. Those announced which no interval reaches any more are left out.
std::string note_of(const Standing& standing, Time now);

// Nothing for a note that is another one, or damaged.
std::optional<Standing> standing_of(std::string_view note);

}  // namespace achost::why
