// Looks on at the readings and says of each what must become of it; a second opinion on what the plug-in does.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "door/why/reports.h"
#include "door/why/second_opinion.h"
#include "door/why/sighting.h"
#include "line/conversation.h"

namespace achost::why {

// What card values and rules are made from.
struct WitnessSettings {
  Settings rules;
  milliseconds probe_interval{0};
  int identification_bits = 0;
  std::string reader_type;

  bool operator==(const WitnessSettings&) const = default;
};

// The plug-in did something else than the rules say.
struct Disagreement {
  Card card = 0;
  Time at;
  bool was_announced = false;    // and was not to be; else it was to be, and was not
  std::vector<Because> reasons;  // why it was not to be; none: nobody has read it
};

// Fed with what happens, in any order within SecondOpinion::kPatience: what it says of a time is known that much later.
// For one thread.
class Witness {
 public:
  static constexpr std::size_t kMostSightings = 4096;  // under way; a card beyond is counted and left out
  static constexpr std::size_t kLongestEpc = 62;       // bytes, as the standard has it; a longer one is left out, too
  static constexpr std::size_t kMostFates = 10;        // of a sighting, which is to go on in another one then,
  static constexpr std::chrono::minutes kLongest{1};   // as it is after that time
  static constexpr std::chrono::seconds kLeft{2};      // a card that was not read for so long has left

  // The plug-in may be held up for so long by a busy machine: it is no disagreement when an announcement comes as late.
  static constexpr milliseconds kLate{100};

  // start: when the plug-in begins to look at readings. on_sighting gets those that are over.
  Witness(WitnessSettings settings, Time start, std::function<void(const Sighting&)> on_sighting,
          std::function<void(const Disagreement&)> on_disagreement);
  ~Witness();
  Witness(const Witness&) = delete;
  Witness& operator=(const Witness&) = delete;

  // A question of the plug-in's, and its answer.
  void saw(const line::Exchange& exchange);
  void announced(Card card, Time at);
  void apply(const WitnessSettings& settings, Time at);
  // The input's level: it changed, and the plug-in was notified; or it is known, and was notified to nobody.
  void input(std::optional<int> level, Time at);
  void answer(std::optional<int> level, Time at);

  // It is that time now. Of the sightings that are over a few are told each time, the others later: whoever keeps them
  // could not take those of a full field at once.
  void pass(Time now);

  // Whether some of them are left for later.
  bool has_more_to_tell() const { return !over_.empty(); }

  // How many are told at once, where so many are over.
  static constexpr std::size_t most_at_once(std::size_t over) { return 8 + over / 32; }

  // Those that are under way, or not told yet, in the order of their beginning.
  std::vector<Sighting> sightings() const;

  // All that are under way are over.
  void end();

  std::uint64_t left_out() const { return left_out_; }  // readings

  // Readings by what decided their fate, since it was made.
  using ByReason = std::array<std::uint64_t, kReasons.size()>;
  const ByReason& by_reason() const { return by_reason_; }

 private:
  struct Presence;

  // Readings of an answer whose fate is not known yet.
  struct Poll {
    Time at;
    bool is_whole = true;   // the plug-in takes the answer for what it is,
    bool is_timely = true;  // and as soon as it is there
    std::vector<std::pair<Card, Presence*>> readings;
  };

  // Finds by the bytes as they stand in an answer.
  struct EpcHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view epc) const { return std::hash<std::string_view>()(epc); }
  };

  void look_back(Time asked);
  Presence* presence_of(const Report& report, Time at);
  void begin(Presence& presence) const;
  void close(Presence& presence, bool goes_on);
  void go_on_in_another_if_due(Presence& presence);
  void count(Presence& presence, Fate& fate, std::int64_t polls, Time at);
  void put_unused(Presence& presence, const Report& report, Time at);
  void conclude(Outcome& outcome);
  void conclude(Poll& poll, Outcome& outcome);
  void conclude(Presence& presence, const Verdict& verdict, Opinion opinion);
  void tell(const Outcome& outcome) const;
  bool has_left(const Presence& presence, Time now) const;
  void settle(Time now);
  void end_over(Time now);
  void tell_over(std::size_t most);
  void doubt_values(Time at);

  WitnessSettings settings_;
  SecondOpinion second_opinion_;
  const std::function<void(const Sighting&)> on_sighting_;
  const std::function<void(const Disagreement&)> on_disagreement_;
  Time latest_;  // answer
  // By the bytes of the EPC.
  std::unordered_map<std::string, std::unique_ptr<Presence>, EpcHash, std::equal_to<>> presences_;
  std::deque<Poll> polls_;          // that wait for their outcome
  Time unsure_until_{};             // after an answer that came in pieces,
  Time untimely_until_{};           // and after one that was taken late
  Time values_unsure_from_{};       // around a change of what card values are,
  Time values_unsure_until_{};      // the latest, with others close before it
  std::uint64_t values_epoch_ = 0;  // of the settings that card values are made with
  std::uint64_t number_of_polls_ = 0;
  std::uint64_t left_out_ = 0;
  std::deque<Sighting> over_;  // and not told yet
  ByReason by_reason_{};
};

}  // namespace achost::why
