// Copies of databases that are in use.
#pragma once

#include <filesystem>

namespace refhost {

// Copy a database as it is at one moment to a file that is not there yet, also while others write it, who wait for
// nothing. False when there is none. Throws ac::ac_exception, which names the file; also when its write-ahead log is
// damaged, of which a part would be missing.
bool copy_database(const std::filesystem::path& file, const std::filesystem::path& copy);

}  // namespace refhost
