// Opening the SQLite files of the host.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <array>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ac/exception.h"
#include "refhost/store_report.h"

namespace refhost {

// A kind of file.
struct DatabaseKind {
  const char* noun;    // for messages: "settings database"
  int version;         // kept in the file as user_version
  const char* schema;  // the SQL that makes its tables
  // The SQL that brings a file of version 1 to 2, one of 2 to 3, and so on.
  std::array<const char*, 4> upgrades = {};
  const char* probe;                 // a query that succeeds on a file of this kind
  const char* way_out;               // what a person can do about a file that cannot be read
  const char* wrong_rows = nullptr;  // a query that finds rows which are not as they were written: it is damaged then
  bool shrinks = false;  // the room of removed rows can be given back in steps ("PRAGMA incremental_vacuum")
  bool is_big = false;   // opening it does not read all of it: its pages are examined beside the work (store_care.h)
};

// For the owner of the state directory: open the file for reading and writing: every transaction is on the disk when it
// returns (write-ahead log, synchronous=FULL). A new file gets its tables and its owner (state_file.h), an older one is
// brought up to date in one transaction. A damaged file is kept under another name, FILE.damaged-DATE, a new one is
// begun, and a warning in the log says so. Throws ac::ac_exception, one line that names the file, and changes nothing,
// when it is of another kind or of a newer version.
// SQL has row_sum(VALUE, ...), a checksum for rows. A damaged write-ahead log, of which SQLite would read a part, is
// mended as far as that can be done, and kept as it was as FILE-wal.damaged-DATE. on_damage: called before a damaged
// file is touched. faults: gets a line for each damage, which is logged too.
SQLite::Database open_database(const std::filesystem::path& file, const DatabaseKind& kind,
                               const std::function<void()>& on_damage = nullptr,
                               std::vector<std::string>* faults = nullptr);

// For the owner, once it has the file open and finds it damaged: what open_database() does with a damaged one. What is
// open of it stays so, under the other name.
SQLite::Database begin_database_anew(const std::filesystem::path& file, const DatabaseKind& kind,
                                     const std::string& damage, std::vector<std::string>* faults);

// Another connection of whoever has the file open already.
SQLite::Database open_database_again(const std::filesystem::path& file);

// Whether the file itself is broken, and not the disk, the memory or the statement.
bool is_damage(const SQLite::Exception& failure);

// The same as open_database() for reading only; nothing when there is no file, or one that nobody has come to write to.
// A damaged file is an exception and stays where it is, one with a damaged write-ahead log too.
std::optional<SQLite::Database> open_database_to_read(const std::filesystem::path& file, const DatabaseKind& kind);

// Examine all pages of the file and its write-ahead log, as open_database_to_read() opens it, then what it holds:
// look() tells of that in the report, and throws nothing but SQLite's exceptions. All that is wrong is in the report.
StoreReport inspect_database(const std::string& store, const std::filesystem::path& file, const DatabaseKind& kind,
                             const std::function<void(SQLite::Database&, StoreReport&)>& look);

// Teach a connection row_sum(), which those of this header know.
void add_row_sum(SQLite::Database& database);

// The exception for a failure of that file.
[[noreturn]] void throw_database_failure(const std::filesystem::path& file, const DatabaseKind& kind,
                                         const SQLite::Exception& failure);

// Make a directory of the host's state, with those above it, for the user alone (0700). Throws ac::ac_exception, also
// when it is there and everyone may write it.
void make_state_directory(const std::filesystem::path& directory);

}  // namespace refhost
