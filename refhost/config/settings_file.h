// The settings on the disk.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <filesystem>
#include <string>
#include <vector>

namespace refhost {

// The SQLite file with the values that differ from the defaults or once did. One thread at a time. Every operation
// throws ac::ac_exception, which names the file.
class SettingsFile {
 public:
  struct Row {
    std::string section;
    std::string key;
    std::string value;
  };

  static constexpr const char* kName = "settings.db";

  // Open it to be written, making it when missing.
  explicit SettingsFile(std::filesystem::path file);

  // The rows of a file, which stays closed; none when there is no file.
  static std::vector<Row> read(const std::filesystem::path& file);

  std::vector<Row> rows();

  // Durable on return.
  void write(const std::string& section, const std::string& key, const std::string& value);

 private:
  std::filesystem::path file_;
  SQLite::Database database_;
};

}  // namespace refhost
