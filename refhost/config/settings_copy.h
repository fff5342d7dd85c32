// The last good copy of the settings.
#pragma once

#include <filesystem>
#include <optional>
#include <vector>

#include "refhost/settings_schema.h"

namespace refhost {

// A text file beside the database, SECTION.KEY=VALUE a line and a checksum in the last. Another writer at the same time
// is kept out by the directory's lock.
class SettingsCopy {
 public:
  explicit SettingsCopy(const std::filesystem::path& directory) : file_(directory / "settings.good") {}

  bool exists() const;

  // Nothing when it is not there or not as it was written.
  std::optional<std::vector<SettingValue>> read() const;

  // In its place at once and durable on return. Throws std::system_error.
  void write(const std::vector<SettingValue>& rows) const;

 private:
  const std::filesystem::path file_;
};

}  // namespace refhost
