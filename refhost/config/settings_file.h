// The settings on the disk.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <filesystem>
#include <string>
#include <vector>

#include "config/settings_copy.h"
#include "refhost/settings_schema.h"
#include "refhost/store_report.h"
#include "refhost/store_watch.h"

namespace refhost {

// The SQLite file with the values that differ from the defaults or once did. One thread at a time. Every operation
// throws ac::ac_exception, which names the file.
class SettingsFile {
 public:
  using Row = SettingValue;

  static constexpr const char* kName = "settings.db";

  // Open it to be written, making it when missing. What a damaged file held, or one that a crash has kept from taking
  // its place, comes from the last good copy; without one the safest values are stored.
  SettingsFile(std::filesystem::path file, const std::vector<Row>& safest);

  // The rows of a file, which stays closed; none when there is no file.
  static std::vector<Row> read(const std::filesystem::path& file);

  // All of a directory's settings, the copy too, examined.
  static StoreReport inspect(const std::filesystem::path& directory);

  std::vector<Row> rows();

  // What was wrong with it when it was opened, a line each.
  const std::vector<std::string>& faults() const { return faults_; }

  // All of them or none; durable on return, and in the copy, or the log says why not.
  void write(const std::vector<Row>& rows);

 private:
  SQLite::Database open(const std::vector<Row>& safest);
  void recover(const std::vector<Row>& safest);
  void write_rows(const std::vector<Row>& rows);
  void keep_copy() noexcept;

  std::filesystem::path file_;
  StoreWatch watch_;
  SettingsCopy copy_;
  std::vector<std::string> faults_;
  bool is_lost_ = false;  // what was stored; the copy has it, or nobody
  SQLite::Database database_;
};

}  // namespace refhost
