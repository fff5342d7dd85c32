// Looks on at what the plug-in does with the readings.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include "door/journal/entry.h"
#include "door/services/gpio_service.h"
#include "door/why/standing.h"
#include "door/why/witness.h"
#include "line/recorder.h"
#include "refhost/bus_view.h"
#include "refhost/settings_store.h"
#include "refhost/work.h"

namespace achost {

// Says of each reading what must become of it, on a thread of its own, a moment later: it has no part in what the door
// does. Keeps the sightings, and notes those that are over; where the plug-in does something else than the rules say it
// sends "second_opinion" {int64 "value", string "text"}, a few times a minute at most, and counts.
class ReadingWatch {
 public:
  // What is held for the thread; what is beyond is left out and counted.
  static constexpr std::size_t kMostBytes = 4U << 20U;

  // Does nothing before begin(). note: gets the sightings that are over, and the disagreements; has_room: whether it
  // would take a sighting, which at the end, when all are over, is waited for. All must outlive it.
  ReadingWatch(const refhost::SettingsStore& settings, const GpioService& gpio, std::function<void(const Entry&)> note,
               std::function<bool()> has_room);
  ~ReadingWatch();
  ReadingWatch(const ReadingWatch&) = delete;
  ReadingWatch& operator=(const ReadingWatch&) = delete;

  // What a recording holds before such a note cannot be explained; there is one in each that is kept of a fault.
  static constexpr std::chrono::seconds kBetweenNotes{15};

  // Before the plug-in starts, with the settings of the run. recorder: gets a note of how things stand, now and as
  // often as that, so that a recording can begin anywhere and be explained; it must outlive this.
  void begin(line::Recorder* recorder = nullptr, std::chrono::milliseconds between_notes = kBetweenNotes);

  // A question of the plug-in's that is done with. The line's thread.
  void saw(line::Exchange exchange);

  // The cards in the field, and those that have left lately, which the journal has or is about to have; all that
  // happened until now is known. Any thread.
  std::vector<why::ToldSighting> sightings() const;

  struct Counters {
    std::uint64_t readings = 0;  // looked at
    std::uint64_t disagreements = 0;
    std::uint64_t left_out = 0;  // for want of room
  };
  Counters counters() const;
  // Readings by the reason that decided about them (why/reasons.h), as far as that is known.
  why::Witness::ByReason by_reason() const;
  // The last of them, also while the thread hangs.
  std::uint64_t left_out() const { return left_out_; }

  // The cards in the field are noted, at the end of the process, within kLongestEnd as far as there is room; nothing is
  // looked at any more.
  static constexpr std::chrono::milliseconds kLongestEnd{500};
  void end();

 private:
  using Time = why::Time;

  struct Announced {
    why::Card card;
  };
  struct Level {
    int level;
  };
  struct ReaderState {
    std::string state;
    std::string cause;
  };
  struct Fact {
    Time at;
    std::variant<line::Exchange, Announced, Level, ReaderState, why::SettingTexts> what;
  };

  void see(const ac::Message& message);
  void take_down(const ac::Message& message);
  void put(Time at, decltype(Fact::what) what, std::size_t more = 0);  // more: bytes beside the fact itself
  why::SettingTexts settings_now() const;
  std::optional<int> level_now() const;
  void begin_witness(Time now);
  void run();
  void look();
  std::chrono::milliseconds pause() const;
  void take_facts();
  void catch_up(Time now);
  void record(Time now);
  void handle(const Fact& fact);
  why::Witness::ByReason all_by_reason() const;
  void note(const why::Sighting& sighting);
  void tell(const why::Disagreement& disagreement);

  const refhost::SettingsStore& settings_;
  const GpioService& gpio_;
  const std::function<void(const Entry&)> note_;
  const std::function<bool()> has_room_;
  std::atomic<int> trigger_line_ = -1;  // set by begin()
  line::Recorder* recorder_ = nullptr;  // set by begin(), before its thread starts, like the next
  std::chrono::milliseconds between_notes_{0};

  std::mutex facts_mutex_;  // guards the next two; nobody waits for it for long
  std::vector<Fact> facts_;
  std::size_t bytes_ = 0;
  std::atomic<std::uint64_t> left_out_ = 0;  // answers, announcements and changes

  mutable std::mutex mutex_;                 // guards all below but the thread
  mutable std::condition_variable changed_;  // of known_until_, wanted_until_ and ending_
  std::optional<why::Witness> witness_;      // once it has begun; none while there is no memory for one
  std::vector<Fact> handled_;                // empty: its room is used again
  std::deque<why::ToldSighting> just_over_;  // the journal may not have them yet
  Time known_until_{};                       // what became of all readings before it is known
  mutable Time wanted_until_{};              // somebody waits until that much is known
  bool ending_ = false;
  Time noted_until_{};  // sightings wait for room until then
  Counters counters_;
  why::Witness::ByReason by_reason_{};  // of witnesses before this one
  std::uint64_t left_out_before_ = 0;   // as the thread knows it
  Time doubtful_until_{};               // something was left out: what follows from it lasts that long
  Time next_word_{};                    // about a disagreement
  why::Standing standing_;              // after all facts that were handled
  Time next_record_{};                  // of it
  refhost::Work work_{"second opinion"};
  std::thread thread_;                    // once it has begun
  std::unique_ptr<refhost::BusTap> tap_;  // last: it uses the others
};

}  // namespace achost
