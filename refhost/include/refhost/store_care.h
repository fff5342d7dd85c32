// What a big store needs while it is used.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <atomic>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>

namespace refhost {

// A second connection to a store's file, for what takes long or can wait: whoever uses the first does not wait for it.
// What is written through it is on the disk with the next transaction of the first, so that it costs no sync; it is to
// be such that losing it does no harm. One thread calls, except where said otherwise.
class StoreCare {
 public:
  explicit StoreCare(std::filesystem::path file);
  StoreCare(const StoreCare&) = delete;
  StoreCare& operator=(const StoreCare&) = delete;

  // From now on the first connection copies what is in its log into the file only when nobody else does for long: see
  // checkpoint(). It must not outlive this.
  void relieve(SQLite::Database& first);

  // Read all pages: what is wrong with them, nothing when they are whole or when end() came between. Takes seconds for
  // a big file. Throws SQLite::Exception.
  std::optional<std::string> examine();

  // Copy what is in the log into the file, when that is worth it. Throws SQLite::Exception.
  void checkpoint();

  // The connection, opened when there is none. It does not wait for a lock of others. Throws SQLite::Exception.
  SQLite::Database& database();

  // Close it, until it is wanted again.
  void rest();

  // The first connection has gone over to another file of that name, so this one does when it is wanted again; until
  // then has_left(). Any thread may call.
  void leave() { has_left_ = true; }
  bool has_left() const { return has_left_; }

  // End what runs, for good. Any thread may call, also while another is in one of the others; it does not wait.
  void end();

 private:
  static int on_commit(void* care, sqlite3* connection, const char* name, int pages);

  const std::filesystem::path file_;
  std::atomic<int> pages_in_log_ = 0;  // written by whoever commits
  std::atomic<bool> has_left_ = false;
  std::mutex mutex_;  // guards everything below; held to open, close and interrupt only
  std::optional<SQLite::Database> database_;
  bool ended_ = false;
};

}  // namespace refhost
