// The SQLite file of the journal.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "door/journal/entry.h"
#include "door/journal/journal.h"
#include "refhost/database.h"
#include "refhost/store_watch.h"

namespace achost {

inline constexpr const char* kJournalFileName = "journal.db";
extern const refhost::DatabaseKind kJournalKind;

// For its owner, and for one thread at a time. Each operation throws ac::ac_exception, which names the file.
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

  // What was wrong with it when it was opened.
  const std::vector<std::string>& faults() const { return faults_; }

 private:
  void begin(std::int64_t last);
  void check_latest();
  void insert(const JournalEntry& entry);
  void take_note_of(const JournalEntry& entry);
  std::int64_t boot(const std::string& text);
  std::string fact(const char* name);
  void set_fact(const char* name, const std::string& value);

  const std::filesystem::path file_;
  refhost::StoreWatch watch_;
  std::vector<std::string> faults_;
  std::int64_t last_ = 0;
  SQLite::Database database_;
  SQLite::Statement insert_;
  std::string id_;
  std::string spool_;
  bool is_running_ = false;
  std::string boot_;  // the latest, and its number in the file
  std::int64_t boot_number_ = 0;
};

// Hold the entries with greater numbers than that against their checksums and for holes.
void check_entries(SQLite::Database& database, std::int64_t after, refhost::StoreReport& report);

}  // namespace achost
