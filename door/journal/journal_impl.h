// What a journal is made of.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "door/journal/alarm_clock.h"
#include "door/journal/clock_jumps.h"
#include "door/journal/entry.h"
#include "door/journal/journal.h"
#include "door/journal/journal_file.h"
#include "door/journal/spool.h"
#include "refhost/clock.h"
#include "refhost/store_care.h"
#include "refhost/work.h"

namespace achost {

// How long an entry waits for others that go to the disk with it, and how soon it is tried again after a failure.
inline constexpr std::chrono::milliseconds kGathering(10);
inline constexpr std::chrono::milliseconds kAgain(1000);

// When it is worth a look whether something is to go, beside after many entries.
inline constexpr std::chrono::minutes kPrunePeriod(10);

std::string boot_id();

// Of the local time, in seconds east of UTC.
std::int64_t zone_offset();

std::int64_t in_ms(auto time) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

struct Journal::Impl {
  using Clock = std::chrono::steady_clock;

  // What an examination has found of the file that had so many faults then: what is damaged, or why it cannot be
  // examined.
  struct LateDamage {
    std::size_t known_faults = 0;
    std::string damage;
    std::string failure;
  };

  explicit Impl(const std::filesystem::path& the_directory);

  std::unique_ptr<Spool> recovered_spool();
  std::unique_ptr<Spool> new_spool();
  EntryTime now() const;
  bool put(const Entry& entry);
  bool lose(std::int64_t& number);
  bool put_locked(std::string& code);
  bool give_number(std::string& code);
  bool put_gap();
  void run();
  bool store_and_prune();
  bool store_some(std::unique_lock<std::mutex>& lock);
  void store_waiting();
  void begin_anew_if_damaged();
  void take_faults();
  bool examine();
  void prune(std::unique_lock<std::mutex>& lock);
  std::string trouble() const;
  void tell_trouble();
  void end();

  const std::filesystem::path directory;
  const std::string boot = boot_id();
  std::function<void(const std::string&)> on_trouble;              // with `telling` held
  std::function<void(const std::vector<std::string>&)> on_damage;  // the same
  std::optional<JournalFile> file;                                 // the thread's; before it and after it the owner's
  std::size_t known_faults = 0;                                    // of the file; as the file
  bool found_unended_run = false;                                  // set when it is made
  std::unique_ptr<Spool> spool;                                    // put with the lock held, taken by the thread
  std::atomic<bool> is_trusted = refhost::clock_is_trusted();      // the machine's clock, as of the last look
  std::atomic<std::int64_t> offset = zone_offset();                // of the local time, the same
  ClockJumps jumps;                                                // of who looks
  Clock::time_point next_prune = Clock::now() + kPrunePeriod;      // the same
  std::mutex telling;  // held while trouble is told, so that it is told in order
  std::string told;    // with `telling` held: the latest trouble that was told

  std::mutex care_mutex;                                  // guards the two below; taken before the other
  refhost::StoreCare care{directory / kJournalFileName};  // but for what any thread may call
  bool is_examined = false;

  AlarmClock alarm_clock;    // the thread's; set with the lock held, or to end
  mutable std::mutex mutex;  // guards everything below
  mutable std::condition_variable more_stored;
  std::function<JournalRetention()> rule;
  std::vector<std::string> faults;        // of the opening, and since
  std::optional<LateDamage> late_damage;  // that the thread has not seen yet
  std::int64_t next_number = 1;
  std::int64_t stored = 0;
  std::int64_t lost = 0;        // entries, since that was last said
  std::int64_t left_out = 0;    // sightings, likewise: no trouble, as the rest has room
  std::int64_t lost_since = 0;  // ms: the time of the first
  bool wants_pruning = false;
  bool ending = false;
  std::optional<Clock::time_point> waiting_since;  // the oldest entry that is not on the disk, or a little earlier
  std::string failure;                             // of the latest attempt to store

  std::atomic<bool> is_held_up = true;  // the thread waits for the disk, which has an alarm of its own
  refhost::Work work{"journal", 1, [this] { return !is_held_up && !spool->is_empty(); }};
  std::thread thread;  // last: it uses all of it
};

}  // namespace achost
