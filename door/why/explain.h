// Answers why a card opened the door, or did not.
#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "door/journal/entry.h"
#include "door/why/reasons.h"
#include "door/why/sighting.h"

namespace achost::why {

// Times are ms since 1970 UTC.
struct Question {
  std::optional<Card> card;        // or
  std::string epc{};               // hexadecimal, upper case
  std::int64_t from = 0;           // included
  std::int64_t to = 0;             // excluded
  std::optional<std::int64_t> at;  // what is asked for lies near it; else the last is
};

// What is known of that time.
struct Evidence {
  std::vector<ToldSighting> sightings;  // also of other cards
  // Identifications, openings, closings, refusals, states of the reader, starts and ends, in their order; also those
  // from shortly before, and the last state of the reader before.
  std::vector<JournalEntry> entries;
};

using NameOf = std::function<std::string(std::int64_t user)>;  // empty: he has none

// What happened at a time.
struct TimelineLine {
  std::int64_t time = 0;
  std::string text;
  std::vector<std::pair<Reason, std::string>> reasons;  // the decisive one first; none: it is no reading
};

struct Explanation {
  std::string answer;  // one sentence
  bool opened = false;
  std::vector<std::pair<Reason, std::string>> reasons;  // of the answer, the decisive one first
  std::vector<TimelineLine> timeline;
};

Explanation explain(const Question& question, const Evidence& evidence, const NameOf& name_of);

// For a person: the answer, and the timeline behind it. today: a day that needs no heading, "2026-01-31".
std::string text_of(const Explanation& explanation, const std::string& today);

nlohmann::ordered_json json_of(const Explanation& explanation);

}  // namespace achost::why
