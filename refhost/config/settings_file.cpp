#include "config/settings_file.h"

#include <utility>

#include "refhost/database.h"

namespace refhost {
namespace {

constexpr DatabaseKind kKind = {
    .noun = "settings database",
    .version = 1,
    .schema =
        "CREATE TABLE settings(section TEXT NOT NULL, key TEXT NOT NULL, value TEXT NOT NULL, "
        "PRIMARY KEY(section, key)) WITHOUT ROWID",
    .probe = "SELECT section, key, value FROM settings LIMIT 0",
    .way_out = "restore a copy of it, or move it away to begin with the defaults",
};

std::vector<SettingsFile::Row> rows_of(SQLite::Database& database, const std::filesystem::path& file) {
  try {
    std::vector<SettingsFile::Row> rows;
    SQLite::Statement query(database, "SELECT section, key, value FROM settings");
    while (query.executeStep()) {
      rows.push_back({query.getColumn(0), query.getColumn(1), query.getColumn(2)});
    }
    return rows;
  } catch (const SQLite::Exception& failure) {
    throw_database_failure(file, kKind, failure);
  }
}

}  // namespace

SettingsFile::SettingsFile(std::filesystem::path file)
    : file_(std::move(file)), database_(open_database(file_, kKind)) {}

std::vector<SettingsFile::Row> SettingsFile::read(const std::filesystem::path& file) {
  auto database = open_database_to_read(file, kKind);
  return database.has_value() ? rows_of(*database, file) : std::vector<Row>();
}

std::vector<SettingsFile::Row> SettingsFile::rows() { return rows_of(database_, file_); }

void SettingsFile::write(const std::vector<Row>& rows) {
  try {
    SQLite::Transaction transaction(database_);
    SQLite::Statement insert(database_, "INSERT OR REPLACE INTO settings(section, key, value) VALUES(?, ?, ?)");
    for (const auto& [section, key, value] : rows) {
      insert.bind(1, section);
      insert.bind(2, key);
      insert.bind(3, value);
      insert.exec();
      insert.reset();
    }
    transaction.commit();
  } catch (const SQLite::Exception& failure) {
    throw_database_failure(file_, kKind, failure);
  }
}

}  // namespace refhost
