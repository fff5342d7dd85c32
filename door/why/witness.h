// Looks on at the readings and says of each what must become of it; a second opinion on what the plug-in does.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "door/why/reports.h"
#include "door/why/sighting.h"
#include "door/why/suppression.h"
#include "line/conversation.h"

namespace achost::why {

// What card values and rules are made from.
struct WitnessSettings {
  Settings rules;
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

// Fed with what happens, in the order of time. For one thread.
class Witness {
 public:
  static constexpr std::size_t kMostSightings = 4096;  // under way; a card beyond is counted and left out
  static constexpr std::size_t kLongestEpc = 62;       // bytes, as the standard has it; a longer one is left out, too
  static constexpr std::size_t kMostFates = 10;        // of a sighting, which goes on in another one then,
  static constexpr std::chrono::minutes kLongest{1};   // as it does after that time
  static constexpr std::chrono::seconds kLeft{2};      // a card that was not read for so long has left
  static constexpr milliseconds kPatience{50};         // with an announcement that is due

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
  void input(std::optional<int> level, Time at);

  // Nothing else happened until then.
  void pass(Time now);

  // Those that are under way, in the order of their beginning.
  std::vector<Sighting> sightings() const;

  // All that are under way are over.
  void end();

  std::uint64_t left_out() const { return left_out_; }  // readings

 private:
  struct Presence;

  Presence* presence_of(const line::Tag& tag, Time at);
  void begin(Presence& presence, Time at) const;
  void close(Presence& presence, bool goes_on) const;
  void read(Presence& presence, const Report& report, Time at, bool is_sure);
  void look(Time at);
  void open_late(Card card);
  void settle(Time at);
  void conclude(const Verdict& verdict);
  void conclude(Presence& presence, const Verdict& verdict) const;
  void end_over();
  Time forward(Time at);

  WitnessSettings settings_;
  Suppression model_;
  const std::function<void(const Sighting&)> on_sighting_;
  const std::function<void(const Disagreement&)> on_disagreement_;
  Time now_;
  std::uint64_t version_ = 1;  // of what the model knows beside the readings: when it changes, so may every fate
  std::unordered_map<std::string, std::unique_ptr<Presence>> presences_;  // by the bytes of the EPC
  std::multimap<Card, Presence*> looked_at_;  // in the last poll: those whose fate was not known from before
  std::vector<Verdict> open_;                 // of these who expect an announcement
  std::map<Card, Time> due_;                  // announcements that have not come, since when
  std::uint64_t polls_ = 0;
  std::uint64_t left_out_ = 0;
};

}  // namespace achost::why
