// Cards that have opened the door and are still there.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

namespace achost {

// A visit begins when a card opens the door, and lasts until the card was read no more for some time: so a card that
// stays in the field opens once. Whoever sees the readings tells of them, also of those that are not announced; an
// announcement counts as one. Any thread may call; nobody holds the lock for long.
class Visits {
 public:
  using Time = std::chrono::steady_clock::time_point;
  using Card = std::uint64_t;

  // At once; of more, the one that was read longest ago is forgotten, and its card may open again.
  static constexpr std::size_t kMost = 4096;

  struct Visit {
    Card card = 0;
    Time begin;
    Time last;    // reading
    Time told{};  // that its card does not open meanwhile; whoever announces may use it
    bool operator==(const Visit&) const = default;
  };

  // A card is announced: its visit, as it was before; nothing when there is none any more. away: how long a card is not
  // read when it has left, from now on; 0: there are no visits.
  std::optional<Visit> announced(Card card, Time now, std::chrono::milliseconds away);

  // It was said of the visit of a card, if there is one, why the card does not open.
  void told(Card card, Time now);

  // A card has opened.
  void begin(Card card, Time now);

  // Cards that were read; in the order of the times, but for those announced.
  void read(std::span<const Card> cards, Time at);

  // Whether nobody need tell of readings.
  bool is_empty() const;

  // Visits that are over, each once. A reading may be told of a little later than an announcement.
  static constexpr std::chrono::seconds kToldLate{1};
  std::vector<Visit> take_over(Time now);

 private:
  bool is_over(const Visit& visit, Time now) const { return now - visit.last >= away_; }
  void end(std::unordered_map<Card, Visit>::iterator visit);

  mutable std::mutex mutex_;  // guards all
  std::chrono::milliseconds away_{0};
  std::unordered_map<Card, Visit> visits_;
  std::vector<Visit> over_;  // at most kMost
};

}  // namespace achost
