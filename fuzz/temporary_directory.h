// A directory for one process, empty for each input.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <string>

namespace fuzz {

inline std::filesystem::path empty_directory() {
  const auto directory = std::filesystem::temp_directory_path() / ("uhf-fuzz-" + std::to_string(getpid()));
  std::filesystem::remove_all(directory);
  std::filesystem::create_directories(directory);
  return directory;
}

}  // namespace fuzz
