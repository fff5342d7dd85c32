// The SQLite file of the journal.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "door/journal/entry.h"
#include "door/journal/journal.h"
#include "refhost/database.h"
#include "refhost/store_watch.h"

namespace achost {

inline constexpr const char* kJournalFileName = "journal.db";

// Of the file's facts: which journal it is, and where it has parted from another.
inline constexpr const char* kIdFact = "id";
inline constexpr const char* kPartedFact = "parted";

// The greatest number that was ever given.
inline constexpr const char* kLastNumber =
    "SELECT coalesce((SELECT seq FROM sqlite_sequence WHERE name = 'entries'), 0)";

extern const refhost::DatabaseKind kJournalKind;

// For its owner, and for one thread at a time. Each operation throws ac::ac_exception, which names the file. One that
// finds the file damaged begins it anew first, and goes on with the new one.
class JournalFile {
 public:
  explicit JournalFile(const std::filesystem::path& directory);

  // The greatest number that was ever stored.
  std::int64_t last() const { return last_; }

  // Which journal it is, drawn by lot when the file is made.
  const std::string& id() const { return id_; }

  // Whether a run has begun, and not ended.
  bool is_running() const { return is_running_; }

  // Where the spool was; empty at first.
  const std::string& spool() const { return spool_; }
  void set_spool(const std::string& file);

  // Make it a journal of its own, which no spool belongs to: it is a copy of one that has gone on elsewhere.
  void part();

  // Store the entries, in the order of their numbers; those whose numbers are there already are left out. All are on
  // the disk when it returns, or none.
  void store(const std::vector<JournalEntry>& entries);

  // What has gone since that was last said.
  struct Gone {
    std::int64_t first = 0;
    std::int64_t last = 0;
  };

  // Remove some of what the rule lets go. Whether there is more to go.
  bool remove_some(const JournalRetention& rule);

  // Nothing when nothing has gone.
  std::optional<Gone> gone();

  // Keep the file under another name, as it is damaged in that way, and begin a new one, whose numbers go on behind
  // those of the old one.
  void begin_anew(const std::string& damage);

  // It cannot be examined, for that reason.
  void add_fault(const std::string& reason);

  // What was wrong with it when it was opened, and since.
  const std::vector<std::string>& faults() const { return faults_; }

 private:
  struct Open {
    explicit Open(SQLite::Database the_database);

    SQLite::Database database;
    SQLite::Statement insert;  // kept, because every entry needs it
  };

  void open(SQLite::Database database);
  void begin();
  void check_latest();
  void store_all(const std::vector<JournalEntry>& entries);
  bool remove_oldest(const JournalRetention& rule);
  void insert(const JournalEntry& entry);
  void take_note_of(const JournalEntry& entry);
  std::int64_t boot(const std::string& text);
  std::string fact(const char* name);
  void set_fact(const char* name, const std::string& value);
  template <typename Action>
  auto use(const char* what, Action action);

  const std::filesystem::path file_;
  refhost::StoreWatch watch_;
  std::vector<std::string> faults_;
  std::int64_t last_ = 0;
  std::unique_ptr<Open> open_;
  bool is_beginning_ = false;  // the old file is kept, and the new one not made yet
  std::string id_;
  std::string spool_;
  bool is_running_ = false;
  std::string boot_;  // the latest, and its number in the file
  std::int64_t boot_number_ = 0;
};

// Hold the entries with greater numbers than that against their checksums and for holes.
void check_entries(SQLite::Database& database, std::int64_t after, refhost::StoreReport& report);

}  // namespace achost
