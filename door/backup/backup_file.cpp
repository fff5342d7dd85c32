#include "door/backup/backup_file.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <utility>
#include <vector>

#include "ac/exception.h"
#include "cli/output_file.h"
#include "door/backup/stored_files.h"
#include "door/backup/take_over.h"
#include "refhost/database.h"

namespace achost {
namespace {

constexpr refhost::DatabaseKind kBackupKind = {
    .noun = "backup",
    .version = 1,
    .schema =
        "CREATE TABLE files(name TEXT PRIMARY KEY, size INTEGER NOT NULL, sum INTEGER NOT NULL) WITHOUT ROWID;"
        "CREATE TABLE pieces(file TEXT NOT NULL, number INTEGER NOT NULL, data BLOB NOT NULL, sum INTEGER NOT NULL, "
        "PRIMARY KEY(file, number));"
        "CREATE TABLE whole(files INTEGER NOT NULL)",
    .probe = "SELECT name, size, file, number, data, whole.files FROM files, pieces, whole LIMIT 0",
    .way_out = "take another one",
};

struct Packed {
  std::string name;
  std::int64_t size = 0;
};

std::vector<Packed> files_of(SQLite::Database& database, const std::filesystem::path& backup) {
  std::vector<Packed> files;
  SQLite::Statement query(database, "SELECT name, size, sum IS row_sum(name, size) FROM files ORDER BY name");
  while (query.executeStep()) {
    Packed file{.name = query.getColumn(0), .size = query.getColumn(1).getInt64()};
    const auto is_this = [&file](const StoredFile& known) { return known.name == file.name; };
    if (query.getColumn(2).getInt() != 1 || std::ranges::none_of(stored_files(), is_this)) {
      throw ac::ac_exception(backup.string() +
                                 " is damaged, or of a newer version: it holds a file of which nothing "
                                 "is known; take another one",
                             true);
    }
    files.push_back(std::move(file));
  }
  if (SQLite::Statement whole(database, "SELECT files FROM whole");
      !whole.executeStep() || whole.getColumn(0).getInt64() != static_cast<std::int64_t>(files.size())) {
    throw ac::ac_exception(backup.string() + " is damaged: it does not hold what it held; take another one", true);
  }
  return files;
}

void unpack(SQLite::Database& database, const Packed& file, const std::filesystem::path& backup,
            const std::filesystem::path& directory) {
  OutputFile output(directory / file.name, OutputFile::Form::growing);
  SQLite::Statement query(database,
                          "SELECT number, data, sum IS row_sum(file, number, data) FROM pieces WHERE file = ? "
                          "ORDER BY number");
  query.bind(1, file.name);
  std::int64_t number = 0;
  std::int64_t size = 0;
  bool is_whole = true;
  for (; is_whole && query.executeStep(); ++number) {
    const auto data = query.getColumn(1);
    is_whole = query.getColumn(0).getInt64() == number && query.getColumn(2).getInt() == 1;
    size += data.getBytes();
    output.write({static_cast<const char*>(data.getBlob()), static_cast<std::size_t>(data.getBytes())});
  }
  if (!is_whole || size != file.size) {
    throw ac::ac_exception(backup.string() + " is damaged: " + file.name + " in it is not as it was; take another one",
                           true);
  }
  output.close();
}

}  // namespace

BackupWriter::BackupWriter(std::filesystem::path file, bool replaces)
    : file_(std::move(file)), replaces_(replaces), under_way_(file_.string() + ".XXXXXX") {
  refuse_existing();
  const int fd = mkostemp(under_way_.data(), O_CLOEXEC);  // for its user alone
  if (fd < 0) {
    fail(std::strerror(std::exchange(errno, 0)));
  }
  ::close(fd);
  try {
    database_.emplace(under_way_, SQLite::OPEN_READWRITE);
    refhost::add_row_sum(*database_);
    database_->exec("PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF; BEGIN");  // all or nothing by its name
    database_->exec(kBackupKind.schema);
    database_->exec("PRAGMA user_version = " + std::to_string(kBackupKind.version));
    insert_.emplace(*database_, "INSERT INTO pieces(file, number, data, sum) VALUES(?1, ?2, ?3, row_sum(?1, ?2, ?3))");
  } catch (const SQLite::Exception& failure) {
    ::unlink(under_way_.c_str());
    fail(failure.what());
  }
}

BackupWriter::~BackupWriter() {
  if (!under_way_.empty()) {
    ::unlink(under_way_.c_str());
  }
}

void BackupWriter::fail(const std::string& reason) const {
  throw ac::ac_exception("cannot write " + file_.string() + ": " + reason, true);
}

void BackupWriter::refuse_existing() const {
  std::error_code failure;
  if (!replaces_ && std::filesystem::exists(std::filesystem::symlink_status(file_, failure))) {
    fail("it is there already; --force takes its place");
  }
}

void BackupWriter::begin(const std::string& name, std::int64_t size) {
  try {
    SQLite::Statement insert(*database_, "INSERT INTO files(name, size, sum) VALUES(?1, ?2, row_sum(?1, ?2))");
    insert.bind(1, name);
    insert.bind(2, size);
    insert.exec();
  } catch (const SQLite::Exception& failure) {
    fail(failure.what());
  }
  name_ = name;
  number_ = 0;
}

void BackupWriter::add(std::string_view piece) {
  try {
    insert_->reset();
    insert_->bind(1, name_);
    insert_->bind(2, number_++);
    insert_->bind(3, static_cast<const void*>(piece.data()), static_cast<int>(piece.size()));
    insert_->exec();
  } catch (const SQLite::Exception& failure) {
    fail(failure.what());
  }
}

void BackupWriter::close() {
  try {
    insert_.reset();
    database_->exec("INSERT INTO whole SELECT count(*) FROM files; COMMIT");
    database_.reset();
    sync_to_disk(under_way_);
  } catch (const std::exception& failure) {
    fail(failure.what());
  }
  const int failed = replaces_ ? rename(under_way_.c_str(), file_.c_str())
                               : renameat2(AT_FDCWD, under_way_.c_str(), AT_FDCWD, file_.c_str(), RENAME_NOREPLACE);
  if (failed != 0) {
    const int reason = errno;
    refuse_existing();
    fail(std::strerror(reason));
  }
  under_way_.clear();
  const auto directory = std::filesystem::absolute(file_).parent_path();
  sync_to_disk(directory);
}

void unpack_backup(const std::filesystem::path& backup, const std::filesystem::path& directory) {
  if (!std::filesystem::is_regular_file(backup)) {
    throw ac::ac_exception(
        backup.string() + (std::filesystem::exists(backup) ? " is no file" : " is not there") + ": give a backup",
        true);
  }
  auto database = refhost::open_database_to_read(backup, kBackupKind);
  try {
    const auto files = database.has_value() ? files_of(*database, backup) : std::vector<Packed>();
    if (files.empty()) {
      throw ac::ac_exception(backup.string() + " is no backup: nothing is in it", true);
    }
    for (const auto& file : files) {
      unpack(*database, file, backup, directory);
    }
  } catch (const SQLite::Exception& failure) {
    refhost::throw_database_failure(backup, kBackupKind, failure);
  }
}

}  // namespace achost
