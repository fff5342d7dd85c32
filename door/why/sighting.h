// A card's time in the field, and what became of its readings.
#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "door/base/local_time.h"
#include "door/journal/entry.h"
#include "door/why/suppression.h"

namespace achost::why {

// Readings of a card that had the same fate, since it was announced last.
struct Fate {
  Time from;  // the first of them, to which the facts of the reasons belong
  Time to;
  std::int64_t polls = 0;
  bool at_boundary = false;              // each of them could have gone either way
  std::vector<Because> reasons;          // the decisive one first
  std::size_t number = 0;                // of kHalfNotUsed: which report of the answer it was the first time, from 1,
  std::size_t count = 0;                 // and of how many
  std::string flaw{};                    // of kBadFrame
  std::optional<Time> announced_from{};  // a reading from then on would have been announced

  bool is_announcement() const { return !reasons.empty() && reasons.front().reason == Reason::kAnnounced; }
};

struct Sighting {
  std::vector<std::uint8_t> epc;
  Card card = 0;
  Time first;
  Time last;
  std::int64_t polls = 0;  // that read it
  int rssi = 0;            // the best, as the reader says it, 0 to 255
  bool goes_on = false;    // the card stayed: another one follows
  std::vector<Fate> fates;
};

// The same in the words and times of the wall clock, as it is stored and shown.
struct ToldFate {
  std::int64_t from = 0;  // ms since 1970 UTC
  std::int64_t to = 0;
  std::int64_t polls = 0;
  bool at_boundary = false;
  std::optional<std::int64_t> announced_from = {};      // ms since 1970 UTC; a reading from then on would have been
  std::vector<std::pair<Reason, std::string>> reasons;  // the decisive one first

  bool is_announcement() const { return !reasons.empty() && reasons.front().first == Reason::kAnnounced; }
  bool operator==(const ToldFate&) const = default;
};

struct ToldSighting {
  std::string epc;  // hexadecimal
  Card card = 0;
  std::int64_t first = 0;  // ms since 1970 UTC
  std::int64_t last = 0;
  std::int64_t polls = 0;
  int rssi = 0;
  bool goes_on = false;
  std::vector<ToldFate> fates;

  bool operator==(const ToldSighting&) const = default;
};

// wall: what the wall clock showed, or would have shown, at a time.
ToldSighting told(const Sighting& sighting, const std::function<Milliseconds(Time)>& wall);

// {"epc", "card", "first", "last", "polls", "rssi", "goes_on", "fates": [{"from", "to", "polls", "at_boundary",
// "announced_from", "reasons": [{"code", "text"}]}]}; times in ms since 1970 UTC.
nlohmann::ordered_json json_of(const ToldSighting& sighting);

// As the journal keeps it: the same fields, the fates as JSON.
Entry entry_of(const ToldSighting& sighting);

// Throws nlohmann::json::exception or std::runtime_error when it is none.
ToldSighting sighting_of(const Entry& entry);

std::string hexadecimal(std::span<const std::uint8_t> bytes);

}  // namespace achost::why
