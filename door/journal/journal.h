// What happened on the device, in order and for good.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "door/journal/entry.h"
#include "refhost/store_report.h"

namespace achost {

// Which entries are wanted; empty fields leave all in.
struct JournalQuery {
  std::vector<Kind> kinds = {};
  std::optional<std::int64_t> user = {};
  std::optional<std::uint64_t> card = {};
  std::optional<std::int64_t> since = {};  // ms since 1970 UTC, included
  std::optional<std::int64_t> until = {};  // excluded
  std::optional<std::int64_t> after = {};  // only greater numbers
  std::optional<std::int64_t> last = {};   // so many, the newest
  std::optional<std::int64_t> to = {};     // of a query that goes on: numbers up to this one; `last` has had its effect
};

// How far a query has come: it goes on behind `after`, and is done when that is `to`.
struct JournalReach {
  std::int64_t after = 0;
  std::int64_t to = 0;
};

// What a journal is, and what it has.
struct JournalExtent {
  std::string id = {};                   // drawn by lot; another one after a restore
  std::int64_t first = 1;                // the smallest number that is there; of none the one that comes next
  std::int64_t last = 0;                 // the greatest that was ever stored
  std::int64_t parted = 0;               // up to there it has what the journal had whose copy it is; 0: it is nobody's
  std::optional<std::string> boot = {};  // of the entry that was asked for, if that is there
};

// What may go.
struct JournalRetention {
  std::int64_t keep = 0;    // entries, the newest; 0: all
  std::int64_t oldest = 0;  // ms: what is older goes; 0: nothing for its age
  bool knows_ages = true;   // the clock is right; else nothing goes for its age
};

// The numbered entries in the SQLite file journal.db. Any thread may call.
//
// note() is done when the entry is in the spool, a file of fixed size in memory that outlives the process: it waits for
// no disk. A thread of the journal's moves what is there into the database, many at a time, so that an entry is on the
// disk 50 ms later at the most, if the disk takes it. At the next start what is still in the spool is moved first.
// Readers see what is on the disk, so a number that was seen is never given again.
class Journal {
 public:
  // Open DIRECTORY/journal.db; directory (mode 0700) and file are made when missing, a file that shows its damage is
  // kept under another name. Throws ac::ac_exception when the file is none or is of a newer version.
  explicit Journal(const std::filesystem::path& directory);

  // Stores what waits, as far as the disk takes it, and ends the thread.
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  // Note what happens now. False: it is lost, since the spool is full; a later entry will say so. A sighting is noted
  // only while half of the spool is free, so that there is room for openings where a field is full of cards.
  bool note(const Entry& entry);

  // Whether a sighting would be noted.
  bool has_room_for_sightings() const;

  // Whether what is noted gets to the disk: nothing has failed or waited for more than a second.
  bool is_writable() const;

  // Called when something is wrong, with one line that says what and the way out, and with an empty one when that is
  // over; on any thread. To be set before other threads use the journal.
  void on_trouble(std::function<void(const std::string&)> callback);

  // Called with all faults() when another one is found, on any thread. Not for those of the opening.
  void on_damage(std::function<void(const std::vector<std::string>&)> callback);

  // What may go, asked now and then. To be set before other threads use the journal; at the start all stays.
  void retain(std::function<JournalRetention()> rule);

  // Read all pages, which opening does not, and tell whether there was something to do: the first time only. Takes
  // seconds for a big file; nobody waits for it. A file that is damaged is then kept under another name, and a new one
  // begun, whose numbers go on. Throws ac::ac_exception when it is to be called again.
  bool examine();

  // To be called about each second: sees jumps of the clock, and a disk that does not answer.
  void look();

  // The greatest number on the disk.
  std::int64_t stored() const;

  // Wait until a greater number than that is on the disk, or the time is over; returns stored().
  std::int64_t wait_beyond(std::int64_t number, std::chrono::milliseconds longest) const;

  // Whether the run before has begun, and not ended.
  bool found_unended_run() const;

  // What was wrong with the file or the spool when it was opened, and since, a line each.
  std::vector<std::string> faults() const;

  // Store what waits, as far as the disk takes it, and close the file for good, at the end of the process. Entries that
  // come from now on are lost.
  void seal();

  // Hand the entries of DIRECTORY/journal.db to a function, oldest first, also while a daemon writes there; without a
  // file there are none. No lock is held while the function runs. Returns the greatest number that was looked at, for a
  // query of what comes after. Throws ac::ac_exception, and what the function throws.
  static std::int64_t read(const std::filesystem::path& directory, const JournalQuery& query,
                           const std::function<void(const JournalEntry&)>& take);

  // The same until the function returns false. The query goes on with what comes back as its `after` and `to`, so no
  // file is held meanwhile.
  static JournalReach read_part(const std::filesystem::path& directory, const JournalQuery& query,
                                const std::function<bool(const JournalEntry&)>& take);

  // Also while a daemon writes there. entry: whose boot is wanted.
  static JournalExtent extent(const std::filesystem::path& directory, std::optional<std::int64_t> entry = {});

  // Hold all entries of DIRECTORY/journal.db against their numbers and checksums, also while a daemon writes there.
  static refhost::StoreReport inspect(const std::filesystem::path& directory);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace achost
