#include "config/settings_file.h"

#include <exception>
#include <system_error>
#include <utility>

#include "refhost/database.h"
#include "refhost/log.h"

namespace refhost {
namespace {

constexpr DatabaseKind kKind = {
    .noun = "settings database",
    .version = 2,
    .schema =
        "CREATE TABLE settings(section TEXT NOT NULL, key TEXT NOT NULL, value TEXT NOT NULL, sum INTEGER, "
        "PRIMARY KEY(section, key)) WITHOUT ROWID",
    .upgrades = {"ALTER TABLE settings ADD COLUMN sum INTEGER; UPDATE settings SET sum = row_sum(section, key, value)"},
    .probe = "SELECT section, key, value FROM settings LIMIT 0",
    .way_out = "restore a copy of it, or move it away with settings.good to begin with the defaults",
    .wrong_rows = "SELECT 1 FROM settings WHERE sum IS NOT row_sum(section, key, value)",
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

// "uhf.operation_mode=inhibit".
std::string text_of(const std::vector<SettingsFile::Row>& rows) {
  std::string text;
  for (const auto& [section, key, value] : rows) {
    text.append(text.empty() ? "" : ", ").append(section).append(".").append(key).append("=").append(value);
  }
  return text;
}

}  // namespace

SettingsFile::SettingsFile(std::filesystem::path file, const std::vector<Row>& safest)
    : file_(std::move(file)), watch_(file_), copy_(file_.parent_path()), database_(open(safest)) {
  recover(safest);
}

// What shall hold is on the disk before the damaged file leaves its place: a crash in between loses nothing.
SQLite::Database SettingsFile::open(const std::vector<Row>& safest) {
  const auto make_sure = [&] {
    is_lost_ = true;
    if (copy_.read().has_value()) {
      return;
    }
    try {
      copy_.write(safest);
    } catch (const std::exception& failure) {
      log::error(std::string("the copy of the settings cannot be written: ") + failure.what());
    }
  };
  if (std::error_code failure; copy_.exists() && !std::filesystem::exists(file_, failure) && !failure) {
    make_sure();
  }
  return open_database(file_, kKind, make_sure, &faults_);
}

void SettingsFile::recover(const std::vector<Row>& safest) {
  const auto good = copy_.read();
  const auto stored = rows();
  // A crash may have come between the new file and what it gets.
  const bool is_cut_off = stored.empty() && good.has_value() && !good->empty();
  if (is_lost_ || is_cut_off) {
    const auto& known = good.has_value() ? *good : safest;
    write_rows(known);
    const std::string file = file_.string();
    faults_.push_back(known == safest ? "what " + file + " held is lost, and there is no good copy: " +
                                            text_of(safest) + " holds until achost config set says otherwise"
                                      : "the settings of " + file + " are those of the last good copy beside it");
    log::error(faults_.back());
  }
  if (is_lost_ || good != rows()) {
    keep_copy();
  }
}

void SettingsFile::keep_copy() noexcept {
  try {
    copy_.write(rows());
  } catch (const std::exception& failure) {
    log::warning(std::string("the copy of the settings is not up to date: ") + failure.what());
  }
}

std::vector<SettingsFile::Row> SettingsFile::read(const std::filesystem::path& file) {
  auto database = open_database_to_read(file, kKind);
  return database.has_value() ? rows_of(*database, file) : std::vector<Row>();
}

StoreReport SettingsFile::inspect(const std::filesystem::path& directory) {
  const SettingsCopy copy(directory);
  auto report =
      inspect_database("settings", directory / kName, kKind, [](SQLite::Database& database, StoreReport& found) {
        SQLite::Statement wrong(
            database,
            "SELECT section || '.' || key || ' is not as it was stored: the next start of a host takes "
            "the good copy' FROM settings WHERE sum IS NOT row_sum(section, key, value)");
        while (wrong.executeStep()) {
          found.faults.push_back(wrong.getColumn(0));
        }
        found.content = counted(database.execAndGet("SELECT count(*) FROM settings"), "stored setting");
      });
  if (copy.exists() && !copy.read().has_value()) {
    report.faults.push_back("the good copy of the settings is not as it was written: the next change writes it anew");
  }
  return report;
}

std::vector<SettingsFile::Row> SettingsFile::rows() { return rows_of(database_, file_); }

void SettingsFile::write(const std::vector<Row>& rows) {
  StoreWatch::Use use(watch_, "a setting");
  try {
    write_rows(rows);
  } catch (const ac::ac_exception& failure) {
    use.fail(failure.what());
    throw;
  }
  keep_copy();
}

void SettingsFile::write_rows(const std::vector<Row>& rows) {
  try {
    SQLite::Transaction transaction(database_);
    SQLite::Statement insert(database_,
                             "INSERT OR REPLACE INTO settings(section, key, value, sum) "
                             "VALUES(?1, ?2, ?3, row_sum(?1, ?2, ?3))");
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
