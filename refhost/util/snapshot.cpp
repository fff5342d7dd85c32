#include "refhost/snapshot.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <string>
#include <system_error>

#include "ac/exception.h"
#include "util/wal.h"

namespace refhost {

bool copy_database(const std::filesystem::path& file, const std::filesystem::path& copy) {
  constexpr int kLongestWaitMs = 2000;
  std::error_code failure_to_look;
  if (!std::filesystem::exists(file, failure_to_look) && !failure_to_look) {
    return false;
  }
  const std::string wal = file.string() + "-wal";
  if (const auto damage = find_damage(wal); damage.hidden + damage.lost > 0) {
    throw ac::ac_exception(wal + " is damaged: the next start of a host mends what can be mended", true);
  }
  try {
    SQLite::Database database(file.string(), SQLite::OPEN_READWRITE, kLongestWaitMs);
    SQLite::Statement copying(database, "VACUUM INTO ?");
    copying.bind(1, copy.string());
    copying.exec();
  } catch (const SQLite::Exception& failure) {
    throw ac::ac_exception(file.string() + " cannot be copied to " + copy.string() + ": " + failure.what(), true);
  }
  return true;
}

}  // namespace refhost
