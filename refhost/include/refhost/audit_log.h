// The audit log.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/store_report.h"

namespace refhost {

// What the type codes of the records mean, by code.
inline constexpr std::string_view kAuditTypes[] = {"none", "config", "api",  "usb", "network",
                                                   "time", "online", "menu", "boot"};

struct AuditRecord {
  std::string time;  // as whoever wrote it gave it
  int type = 0;
  std::string details;
};

// A record in the log.
struct AuditEntry {
  std::int64_t id = 0;  // counted from 1, never used again
  std::int64_t at = 0;  // ms since 1970 UTC by the host's clock when it was written; 0: not known
  AuditRecord record;
};

// Numbers of records.
struct AuditRange {
  std::int64_t after = 0;  // excluded
  std::int64_t to = 0;     // included

  bool operator==(const AuditRange&) const = default;
};

// Which records are wanted; empty fields leave all in.
struct AuditFilter {
  std::vector<int> types = {};
  std::optional<std::int64_t> since = std::nullopt;  // ms since 1970 UTC, included
  std::optional<std::int64_t> until = std::nullopt;  // excluded
  std::optional<std::int64_t> last = std::nullopt;   // so many, the newest
  std::optional<AuditRange> range = std::nullopt;    // where all the others lie: nothing is looked for then
};

// What may go when there are too many records.
struct AuditRetention {
  std::int64_t keep = 0;            // records; 0 keeps all
  std::int64_t youngest_to_go = 0;  // ms: a record younger than this stays whatever their number
  bool knows_ages = true;           // the clock is right; else what is beyond twice the number goes, and nothing else
};

// The records in the SQLite file audit.db. Any thread may call, except where said otherwise.
class AuditLog {
 public:
  // Open DIRECTORY/audit.db; directory (mode 0700) and file are made when missing, a file of an older version is
  // brought up to date, one that shows its damage kept under another name. Throws ac::ac_exception, with nothing
  // changed, when the file is no audit log or is of a newer version.
  explicit AuditLog(const std::filesystem::path& directory);
  ~AuditLog();
  AuditLog(const AuditLog&) = delete;
  AuditLog& operator=(const AuditLog&) = delete;

  // Called after each record, once it is on the disk, in the order of the records, on the thread that wrote it. It must
  // not append. To be set before other threads use the log.
  void on_append(std::function<void(const AuditEntry&)> callback);

  // Called with all faults(), with the log locked, when another one is found. To be set before other threads use the
  // log.
  void on_damage(std::function<void(const std::vector<std::string>&)> callback);

  // What tidy() may remove, asked at each call. To be set before other threads use the log; at the start all stays.
  void retain(std::function<AuditRetention()> rule);

  // Append a record; it is on the disk when the call returns. Returns its number. A file that
  // proves damaged is kept under another name first, and a new one begun. Throws ac::ac_exception, which names the
  // file; nothing is changed then, and a later call may succeed.
  std::int64_t append(const AuditRecord& record);

  // Do a little of what can wait, and tell whether there is more; to be called again and again, see upkeep.h. Who
  // appends waits for a part of it that takes a millisecond or so. The first call examines all pages, which opening
  // does not: a damaged file is kept under another name, and a new one begun. The others remove some of the oldest
  // records beyond the rule, and note between which times the new ones lie. Throws ac::ac_exception.
  bool tidy();

  // What was wrong with the file when it was opened, and since, a line each: damage, and what the newest records lack.
  std::vector<std::string> faults() const;

  // Close the file for good, at the end of the process. A thread that appends from now on waits for that end.
  void seal();

  // The log behind ac_dal::audit_logs, null at the start. A log that is current must not be destroyed while other
  // threads run.
  static AuditLog* current() noexcept;
  static void make_current(AuditLog* log) noexcept;

  // Hand the records of DIRECTORY/audit.db to a function, oldest first, one after the other, also while a host writes
  // there; without a file there are none. Throws ac::ac_exception, and what the function throws.
  static void read(const std::filesystem::path& directory, const AuditFilter& filter,
                   const std::function<void(const AuditEntry&)>& take);

  // Hold all records of DIRECTORY/audit.db against their numbers and checksums, also while a host writes there.
  static StoreReport inspect(const std::filesystem::path& directory);

 private:
  bool tidy_file();
  void examine();

  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Reads DIRECTORY/audit.db in parts, for one who takes his time: between the calls nothing of the file is held, and no
// call waits for anything but the disk. Any thread may call; each throws ac::ac_exception, which names the file.
class AuditReader {
 public:
  explicit AuditReader(const std::filesystem::path& directory);
  ~AuditReader();
  AuditReader(const AuditReader&) = delete;
  AuditReader& operator=(const AuditReader&) = delete;

  // Where the records lie that the filter lets pass, of those that are there now; read() takes it in the filter.
  AuditRange range_of(const AuditFilter& filter);

  // Hand the records to a function, oldest first, until it returns false.
  void read(const AuditFilter& filter, const std::function<bool(const AuditEntry&)>& take);

  // Close the file for good, at the end of the process. A thread that reads from now on waits for that end.
  void seal();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Announces a record on the bus with "audit_log_created": int64 "id", string "time", int "type", string "details". Made
// for AuditLog::on_append.
void announce(const AuditEntry& entry);

}  // namespace refhost
