// What a state directory holds, for copies of all of it.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "refhost/store_report.h"

namespace achost {

// A store, and the database that it is.
struct StoredFile {
  const char* name;
  // Make the file ready for this directory: when it is missing, or of an older version. Returns what was wrong with it,
  // a line each; throws ac::ac_exception, also when it is of a newer version than this program knows.
  std::vector<std::string> (*bring_up_to_date)(const std::filesystem::path& directory);
  refhost::StoreReport (*inspect)(const std::filesystem::path& directory);
};

const std::vector<StoredFile>& stored_files();

}  // namespace achost
