#include "refhost/store_care.h"

#include <sqlite3.h>

#include <utility>

#include "refhost/database.h"

namespace refhost {
namespace {

// Pages in the log from which on copying them is worth it, and those at which whoever commits does it himself, should
// nobody else: the log is not to grow without end.
constexpr int kWorthIt = 500;
constexpr int kMost = 1000;

}  // namespace

StoreCare::StoreCare(std::filesystem::path file) : file_(std::move(file)) {}

int StoreCare::on_commit(void* care, sqlite3* connection, const char* name, int pages) {
  static_cast<StoreCare*>(care)->pages_in_log_ = pages;
  if (pages >= kMost) {
    sqlite3_wal_checkpoint_v2(connection, name, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
  }
  return SQLITE_OK;
}

void StoreCare::relieve(SQLite::Database& first) { sqlite3_wal_hook(first.getHandle(), on_commit, this); }

SQLite::Database& StoreCare::database() {
  constexpr const char* kSmallMemory = "PRAGMA cache_size = -256";  // KiB
  const std::lock_guard lock(mutex_);
  if (has_left_.exchange(false)) {
    database_.reset();
  }
  if (!database_.has_value()) {
    auto fresh = open_database_again(file_);
    fresh.setBusyTimeout(0);
    fresh.exec("PRAGMA synchronous = NORMAL");
    fresh.exec(kSmallMemory);
    fresh.exec("PRAGMA secure_delete = FAST");  // what goes is overwritten where its page is written anyway
    sqlite3_wal_hook(fresh.getHandle(), on_commit, this);
    database_ = std::move(fresh);
  }
  return *database_;
}

std::optional<std::string> StoreCare::examine() {
  try {
    SQLite::Statement pages(database(), "PRAGMA quick_check(1)");
    {
      const std::lock_guard lock(mutex_);
      if (ended_) {
        return std::nullopt;
      }
    }
    pages.executeStep();
    const std::string verdict = pages.getColumn(0);
    return verdict == "ok" ? std::nullopt : std::optional(verdict);
  } catch (const SQLite::Exception& failure) {
    if (failure.getErrorCode() == SQLITE_INTERRUPT) {
      return std::nullopt;
    }
    if (is_damage(failure)) {
      return failure.what();
    }
    throw;
  }
}

void StoreCare::checkpoint() {
  if (pages_in_log_ < kWorthIt) {
    return;
  }
  SQLite::Database& connection = database();
  const int code =
      sqlite3_wal_checkpoint_v2(connection.getHandle(), nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
  if (code != SQLITE_OK && code != SQLITE_BUSY && code != SQLITE_INTERRUPT) {
    throw SQLite::Exception(connection.getHandle(), code);
  }
  pages_in_log_ = 0;  // the next commit tells anew
}

void StoreCare::rest() {
  const std::lock_guard lock(mutex_);
  database_.reset();
}

void StoreCare::end() {
  const std::lock_guard lock(mutex_);
  ended_ = true;
  if (database_.has_value()) {
    sqlite3_interrupt(database_->getHandle());
  }
}

}  // namespace refhost
