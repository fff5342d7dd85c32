// The settings on the disk.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <filesystem>
#include <string>
#include <vector>

#include "refhost/settings_schema.h"

namespace refhost {

// The SQLite file with the values that differ from the defaults or once did. One thread at a time. Every operation
// throws ac::ac_exception, which names the file.
class SettingsFile {
 public:
  using Row = SettingValue;

  static constexpr const char* kName = "settings.db";

  // Open it to be written, making it when missing.
  explicit SettingsFile(std::filesystem::path file);

  // The rows of a file, which stays closed; none when there is no file.
  static std::vector<Row> read(const std::filesystem::path& file);

  std::vector<Row> rows();

  // All of them or none; durable on return.
  void write(const std::vector<Row>& rows);

 private:
  std::filesystem::path file_;
  SQLite::Database database_;
};

}  // namespace refhost
