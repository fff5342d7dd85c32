// A backup, which is one file.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace achost {

// Writes a backup: an SQLite database that holds files in pieces, each with a checksum, and their sizes. It takes its
// place as a whole when it is closed, and is for its user alone. For one thread; each operation throws
// ac::ac_exception, which names the file.
class BackupWriter {
 public:
  // replaces: also what has that name already.
  BackupWriter(std::filesystem::path file, bool replaces);

  // Removes what is not closed.
  ~BackupWriter();
  BackupWriter(const BackupWriter&) = delete;
  BackupWriter& operator=(const BackupWriter&) = delete;

  void begin(const std::string& name, std::int64_t size);
  void add(std::string_view piece);
  void close();

 private:
  [[noreturn]] void fail(const std::string& reason) const;
  void refuse_existing() const;

  const std::filesystem::path file_;
  const bool replaces_;
  std::string under_way_;
  std::optional<SQLite::Database> database_;
  std::optional<SQLite::Statement> insert_;
  std::string name_;  // of the file that comes, and how many pieces of it there are
  std::int64_t number_ = 0;
};

// Writes the files of a backup into a directory, those of names that stored_files() knows, and checks that they are as
// they were. Throws ac::ac_exception, which names the backup and what is wrong with it.
void unpack_backup(const std::filesystem::path& backup, const std::filesystem::path& directory);

}  // namespace achost
