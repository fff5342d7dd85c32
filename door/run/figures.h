// Counts what happens on the way from the reader to the relay, for whoever watches the door from elsewhere.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "ac/message.h"
#include "door/run/histogram.h"
#include "line/conversation.h"

namespace achost {

// Fed with what passes, on the threads that pass it: no call waits for more than a few instructions of another; without
// memory something is not counted.
class Figures {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // door_line: the line of the door's relay; called on the door's thread.
  explicit Figures(std::function<int()> door_line) : door_line_(std::move(door_line)) {}

  // A question of the plug-in's that is done with. The line's thread.
  void saw(const line::Exchange& exchange);

  // A message on the bus. Any thread.
  void see(const ac::Message& message, Time now = std::chrono::steady_clock::now());

  // {"polls": by outcome, "identifications": by outcome, "stages": {"line", "plug_in", "decision", "relay"}}. A stage
  // is {"count", "sum_s", "buckets": [{"le_s", "count"}]}, each bucket with those before it, the last without "le_s".
  nlohmann::ordered_json json() const;

 private:
  // What was announced, and is on its way. Enough for those that can be at once; one beyond takes the oldest's place.
  struct Announced {
    std::int64_t card = 0;
    Time at{};
    bool is_decided = true;     // or has not begun
    bool is_attributed = true;  // to the answer that it came from
  };
  static constexpr std::size_t kMostAnnounced = 16;

  void count(const ac::Message& message, Time now);
  void announced(const ac::Message& message, Time now);
  void decided(const ac::Message& message, Time now);
  void asked_to_open(const ac::Message& message, Time now);
  void relay_is_set(const ac::Message& message);
  void line_changed(const ac::Message& message, Time now);

  static constexpr std::size_t kPollOutcomes = static_cast<std::size_t>(line::Outcome::endless) + 1;
  // As identifier_service.h has them; the last is any other.
  static constexpr auto kOutcomes = std::to_array<std::string_view>(
      {"opens", "unknown", "blocked", "not_yet_valid", "no_longer_valid", "outside_schedule", "too_soon_after_entry",
       "still_here", "held_back", "clock_untrusted", "door_locked", "mode_awaited", "journal_unwritable", "failed",
       "other"});

  const std::function<int()> door_line_;
  std::array<std::atomic<std::uint64_t>, kPollOutcomes> polls_{};
  std::array<std::atomic<std::uint64_t>, kOutcomes.size()> decisions_{};
  Histogram line_;      // from a poll to the last byte of its answer
  Histogram plug_in_;   // from there to the announcement
  Histogram decision_;  // from there to the decision
  Histogram relay_;     // from there to the relay's line

  std::mutex mutex_;  // guards all below, for a few instructions
  std::array<Announced, kMostAnnounced> announced_{};
  std::size_t next_ = 0;
  Time answered_{};                    // the latest answer with tags
  std::optional<Time> asked_;          // a card is to open the door, and its relay is not set yet
  std::optional<Time> relay_pending_;  // it is set, and its line has not moved yet
  int relay_line_ = -1;
};

}  // namespace achost
