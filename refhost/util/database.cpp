#include "util/database.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <system_error>

#include "ac/exception.h"

namespace refhost {
namespace {

// How long a statement waits for another process that holds the file, a "config list" for example.
constexpr int kBusyTimeoutMs = 2000;

// True when the file is new: neither a version nor a table.
bool check_kind(SQLite::Database& database, const DatabaseKind& kind) {
  const int version = database.execAndGet("PRAGMA user_version").getInt();
  if (version > kind.version) {
    throw ac::ac_exception(database.getFilename() + " is a " + kind.noun + " of version " + std::to_string(version) +
                               ", newer than this program knows (" + std::to_string(kind.version) +
                               "): use a newer program, or another state directory (--state)",
                           true);
  }
  const bool is_new = version == 0 && database.execAndGet("SELECT count(*) FROM sqlite_schema").getInt() == 0;
  if (!is_new) {
    database.exec(kind.probe);
  }
  return is_new;
}

// SQLite gives its files to the world by default, and those beside it (-wal, -shm) the mode of the file itself. A
// failure shows when SQLite opens the file.
void make_private_file(const std::filesystem::path& file) {
  if (const int fd = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600); fd >= 0) {
    close(fd);
  }
}

void make_tables(SQLite::Database& database, const DatabaseKind& kind) {
  SQLite::Transaction transaction(database);
  database.exec(kind.schema);
  database.exec("PRAGMA user_version = " + std::to_string(kind.version));
  transaction.commit();
}

}  // namespace

SQLite::Database open_database(const std::filesystem::path& file, const DatabaseKind& kind) {
  make_private_file(file);
  try {
    SQLite::Database database(file.string(), SQLite::OPEN_READWRITE, kBusyTimeoutMs);
    const bool is_new = check_kind(database, kind);
    database.exec("PRAGMA journal_mode = WAL");
    database.exec("PRAGMA synchronous = FULL");
    if (is_new) {
      make_tables(database, kind);
    }
    return database;
  } catch (const SQLite::Exception& failure) {
    throw_database_failure(file, kind, failure);
  }
}

SQLite::Database open_database_to_read(const std::filesystem::path& file, const DatabaseKind& kind) {
  try {
    SQLite::Database database(file.string(), SQLite::OPEN_READONLY, kBusyTimeoutMs);
    check_kind(database, kind);
    return database;
  } catch (const SQLite::Exception& failure) {
    throw_database_failure(file, kind, failure);
  }
}

void throw_database_failure(const std::filesystem::path& file, const DatabaseKind& kind,
                            const SQLite::Exception& failure) {
  const int code = failure.getErrorCode();
  const bool damaged = code == SQLITE_NOTADB || code == SQLITE_CORRUPT || code == SQLITE_ERROR;
  const std::string noun = std::string(kind.noun);
  throw ac::ac_exception(damaged
                             ? file.string() + " is no readable " + noun + " (" + failure.what() + "): " + kind.way_out
                             : "the " + noun + " " + file.string() + " cannot be used: " + failure.what(),
                         true);
}

void make_state_directory(const std::filesystem::path& directory) {
  const mode_t before = umask(077);
  std::error_code failure;
  std::filesystem::create_directories(directory, failure);
  umask(before);
  if (failure) {
    throw ac::ac_exception("cannot make the state directory " + directory.string() + ": " + failure.message(), true);
  }
}

}  // namespace refhost
