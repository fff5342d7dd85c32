#include "refhost/database.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <stdexcept>
#include <system_error>

#include "ac/exception.h"
#include "refhost/log.h"
#include "refhost/state_file.h"
#include "util/damage.h"
#include "util/row_sum.h"

namespace refhost {
namespace {

// How long a statement waits for another process that holds the file, a "config list" for example.
constexpr int kBusyTimeoutMs = 2000;

constexpr const char* kMakeShrinkable = "PRAGMA auto_vacuum = INCREMENTAL";

// Thrown for a file that SQLite can open but that is broken inside.
struct Damage : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// For SQL: row_sum(VALUE, ...), the checksum of a row.
void row_sum(sqlite3_context* context, int count, sqlite3_value** values) {
  RowSum sum;
  for (int i = 0; i < count; ++i) {
    if (sqlite3_value_type(values[i]) == SQLITE_INTEGER) {
      sum.add(std::int64_t{sqlite3_value_int64(values[i])});
    } else {
      const auto* const text = reinterpret_cast<const char*>(sqlite3_value_text(values[i]));
      sum.add(std::string_view(text, static_cast<std::size_t>(sqlite3_value_bytes(values[i]))));
    }
  }
  sqlite3_result_int64(context, sum.value());
}

SQLite::Database connect(const std::filesystem::path& file, int flags) {
  SQLite::Database database(file.string(), flags, kBusyTimeoutMs);
  add_row_sum(database);
  return database;
}

// The version of the file; nothing when it is new: neither a version nor a table.
std::optional<int> version_of(SQLite::Database& database, const DatabaseKind& kind) {
  const int version = database.execAndGet("PRAGMA user_version").getInt();
  if (version > kind.version) {
    throw ac::ac_exception(database.getFilename() + " is a " + kind.noun + " of version " + std::to_string(version) +
                               ", newer than this program knows (" + std::to_string(kind.version) +
                               "): use a newer program, or another state directory (--state)",
                           true);
  }
  const bool is_new = version == 0 && database.execAndGet("SELECT count(*) FROM sqlite_schema").getInt() == 0;
  if (is_new) {
    return std::nullopt;
  }
  database.exec(kind.probe);
  return version;
}

// A page that is damaged anywhere shows here, and not in the middle of the night. Reads the whole file.
void check_pages(SQLite::Database& database) {
  const std::string verdict = database.execAndGet("PRAGMA quick_check(1)").getString();
  if (verdict != "ok") {
    throw Damage(verdict);
  }
}

// SQLite gives its files to the world by default, and those beside it (-wal, -shm) the owner and mode of the file
// itself. A failure shows when SQLite opens the file.
void make_private_file(const std::filesystem::path& file) {
  if (const int fd = open_state_file(file); fd >= 0) {
    close(fd);
  }
  for (const char* suffix : kDatabaseSuffixes) {
    give_to_directorys_owner(file.string() + suffix);
  }
}

// All in one transaction: a crash leaves the file as it was.
void bring_up_to_date(SQLite::Database& database, const DatabaseKind& kind, std::optional<int> version) {
  if (version == kind.version) {
    return;
  }
  SQLite::Transaction transaction(database);
  if (!version.has_value()) {
    database.exec(kind.schema);
  } else {
    for (int step = std::max(*version, 1); step < kind.version; ++step) {
      database.exec(kind.upgrades.at(static_cast<std::size_t>(step) - 1));
    }
  }
  database.exec("PRAGMA user_version = " + std::to_string(kind.version));
  transaction.commit();
  database.exec("PRAGMA wal_checkpoint(TRUNCATE)");  // it may be much, which no later transaction is to wait for
}

// Only a file that has a map of its pages can shrink in steps. One that an older host has made is written anew once,
// which takes as much room again for that time: where there is none, it stays as it is until the next start.
void let_it_shrink(SQLite::Database& database, const DatabaseKind& kind) {
  constexpr int kIncremental = 2;
  if (!kind.shrinks || database.execAndGet("PRAGMA auto_vacuum").getInt() == kIncremental) {
    return;
  }
  try {
    database.exec(kMakeShrinkable);
    database.exec("VACUUM; PRAGMA wal_checkpoint(TRUNCATE)");
  } catch (const SQLite::Exception& failure) {
    if (is_damage(failure)) {
      throw;
    }
    log::warning("the " + std::string(kind.noun) + " " + database.getFilename() +
                 " cannot shrink before the next start: " + failure.what());
  }
}

SQLite::Database open_sound_database(const std::filesystem::path& file, const DatabaseKind& kind) {
  make_private_file(file);
  SQLite::Database database = connect(file, SQLite::OPEN_READWRITE);
  const auto version = version_of(database, kind);
  if (!kind.is_big) {
    check_pages(database);
  }
  if (kind.shrinks && !version.has_value()) {
    database.exec(kMakeShrinkable);  // before the file's first page
  }
  database.exec("PRAGMA journal_mode = WAL");
  database.exec("PRAGMA synchronous = FULL");
  bring_up_to_date(database, kind, version);
  if (kind.wrong_rows != nullptr && SQLite::Statement(database, kind.wrong_rows).executeStep()) {
    throw Damage("what is stored is not what was written");
  }
  let_it_shrink(database, kind);
  if (kind.is_big) {
    database.exec("PRAGMA cache_size = -512");  // KiB: who writes at its end needs few of its pages
  }
  return database;
}

// What a crash has cut off in the middle must be rolled back before anybody can read, which takes writing.
SQLite::Database open_readable(const std::filesystem::path& file) {
  SQLite::Database database = connect(file, SQLite::OPEN_READONLY);
  try {
    database.exec("PRAGMA user_version");
    return database;
  } catch (const SQLite::Exception& failure) {
    if (failure.getErrorCode() != SQLITE_READONLY) {
      throw;
    }
    return connect(file, SQLite::OPEN_READWRITE);
  }
}

// Whoever may write there can put files and links of theirs in the place of ours. A group may: its owner has chosen it.
void refuse_shared(const std::filesystem::path& directory) {
  struct stat status {};
  if (stat(directory.c_str(), &status) == 0 && (status.st_mode & S_IWOTH) != 0) {
    throw ac::ac_exception("the state directory " + directory.string() + " may be written by everyone: chmod o-w " +
                               directory.string() +
                               ", once you have looked at what is in it, or give another with --state",
                           true);
  }
}

}  // namespace

bool is_damage(const SQLite::Exception& failure) {
  return failure.getErrorCode() == SQLITE_NOTADB || failure.getErrorCode() == SQLITE_CORRUPT;
}

void add_row_sum(SQLite::Database& database) { database.createFunction("row_sum", -1, true, nullptr, row_sum); }

SQLite::Database open_database(const std::filesystem::path& file, const DatabaseKind& kind,
                               const std::function<void()>& on_damage, std::vector<std::string>* faults) {
  const auto put_aside = [&](const char* damage) {
    if (on_damage) {
      on_damage();
    }
    keep_aside(file, kind.noun, damage, faults);
  };
  try {
    const bool has_lost = mend_wal(file, faults);
    try {
      auto database = open_sound_database(file, kind);
      if (has_lost) {
        database.exec("PRAGMA wal_checkpoint(TRUNCATE)");  // said and kept, it is not in the way of others
      }
      return database;
    } catch (const Damage& damage) {
      put_aside(damage.what());
    } catch (const SQLite::Exception& failure) {
      if (!is_damage(failure)) {
        throw;
      }
      put_aside(failure.what());
    }
    return open_sound_database(file, kind);
  } catch (const SQLite::Exception& failure) {
    throw_database_failure(file, kind, failure);
  }
}

SQLite::Database begin_database_anew(const std::filesystem::path& file, const DatabaseKind& kind,
                                     const std::string& damage, std::vector<std::string>* faults) {
  keep_aside(file, kind.noun, damage, faults);
  try {
    return open_sound_database(file, kind);
  } catch (const SQLite::Exception& failure) {
    throw_database_failure(file, kind, failure);
  }
}

SQLite::Database open_database_again(const std::filesystem::path& file) {
  return connect(file, SQLite::OPEN_READWRITE);
}

// SQLite would make a new index of the log, without what the damage hides.
std::optional<SQLite::Database> open_database_to_read(const std::filesystem::path& file, const DatabaseKind& kind) {
  std::error_code failure_to_look;
  if (!std::filesystem::exists(file, failure_to_look) && !failure_to_look) {
    return std::nullopt;
  }
  if (const auto fault = wal_fault(file); !fault.empty()) {
    throw ac::ac_exception(fault, true);
  }
  try {
    SQLite::Database database = open_readable(file);
    const auto version = version_of(database, kind);
    if (!version.has_value()) {
      return std::nullopt;
    }
    if (*version < kind.version) {
      throw ac::ac_exception(file.string() + " is a " + kind.noun + " of version " + std::to_string(*version) +
                                 ": a host that runs on it brings it up to date (" + std::to_string(kind.version) + ")",
                             true);
    }
    return database;
  } catch (const SQLite::Exception& failure) {
    throw_database_failure(file, kind, failure);
  }
}

namespace {

// SQLite tells of a file that belongs to somebody else only that it cannot be opened.
std::string reason_of(const std::filesystem::path& file, const SQLite::Exception& failure) {
  const bool denied = failure.getErrorCode() == SQLITE_CANTOPEN &&
                      faccessat(AT_FDCWD, file.c_str(), R_OK | W_OK, AT_EACCESS) != 0 && errno == EACCES;
  return denied ? "Permission denied; try it as root, or as whom " + file.parent_path().string() + " belongs to"
                : failure.what();
}

}  // namespace

void throw_database_failure(const std::filesystem::path& file, const DatabaseKind& kind,
                            const SQLite::Exception& failure) {
  const int code = failure.getErrorCode();
  const std::string noun = std::string(kind.noun);
  throw ac::ac_exception(is_damage(failure) || code == SQLITE_ERROR
                             ? file.string() + " is no readable " + noun + " (" + failure.what() + "): " + kind.way_out
                             : "the " + noun + " " + file.string() + " cannot be used: " + reason_of(file, failure),
                         true);
}

StoreReport inspect_database(const std::string& store, const std::filesystem::path& file, const DatabaseKind& kind,
                             const std::function<void(SQLite::Database&, StoreReport&)>& look) {
  constexpr const char* kAllPages = "PRAGMA integrity_check(10)";
  StoreReport report{.store = store, .content = "cannot be read"};
  try {
    auto database = open_database_to_read(file, kind);
    if (!database.has_value()) {
      report.content = "nothing is stored";
      return report;
    }
    try {
      SQLite::Statement pages(*database, kAllPages);
      while (pages.executeStep()) {
        if (const std::string verdict = pages.getColumn(0); verdict != "ok") {
          report.faults.push_back(file.string() + ": " + verdict);
        }
      }
      look(*database, report);
    } catch (const SQLite::Exception& failure) {
      throw_database_failure(file, kind, failure);
    }
  } catch (const ac::ac_exception& failure) {
    report.faults.emplace_back(failure.what());
  }
  return report;
}

void make_state_directory(const std::filesystem::path& directory) {
  const mode_t before = umask(077);
  std::error_code failure;
  std::filesystem::create_directories(directory, failure);
  umask(before);
  if (failure) {
    throw ac::ac_exception("cannot make the state directory " + directory.string() + ": " + failure.message(), true);
  }
  refuse_shared(directory);
}

}  // namespace refhost
