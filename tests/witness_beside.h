// A witness (door/why/witness.h) beside a story: what passes on the line and on the bus is told to it as a door does.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "door/why/witness.h"

namespace reading_story {

namespace why = achost::why;
using why::Time;

class WitnessBeside {
 public:
  WitnessBeside(const why::WitnessSettings& settings, Time start, std::optional<int> level);

  // An answer with these EPCs, all of which count: it was there at one time and noted at the other, and the next
  // question followed a probe interval later. The witness hears of it with the next pass().
  void answered(std::span<const line::Bytes> epcs, Time there, Time noted);
  void announced(why::Card card, Time at) { witness_.announced(card, at); }
  void apply(const why::WitnessSettings& settings, Time at);
  void input(int level, Time at) { witness_.input(level, at); }
  void pass(Time now);
  // All that happened is known then.
  void end();

  // The first one.
  const std::optional<why::Disagreement>& disagreement() const { return disagreement_; }

  // Readings by their fate.
  struct Readings {
    std::map<why::Reason, std::int64_t> by_reason;
    std::int64_t at_boundary = 0;
  };
  const Readings& readings() const { return readings_; }

 private:
  void tell_answers();
  void add(const why::Sighting& sighting);

  std::chrono::milliseconds probe_interval_;
  std::vector<line::Exchange> untold_;
  Readings readings_;
  std::optional<why::Disagreement> disagreement_;
  why::Witness witness_;  // last: it tells the others
};

}  // namespace reading_story
