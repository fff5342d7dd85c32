#include "door/backup/stored_files.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include "door/journal/journal.h"
#include "door/journal/journal_file.h"
#include "door/services/user_store.h"
#include "refhost/audit_log.h"
#include "refhost/settings_store.h"

namespace achost {
namespace {

using std::filesystem::path;

std::vector<std::string> settings(const path& directory) {
  return refhost::SettingsStore(directory, refhost::SettingsStore::Access::read_write).faults();
}

std::vector<std::string> users(const path& directory) {
  return UserStore(directory, UserStore::Access::read_write).faults();
}

std::vector<std::string> audit(const path& directory) { return refhost::AuditLog(directory).faults(); }

// The journal that it is a copy of may have gone on.
std::vector<std::string> journal(const path& directory) {
  JournalFile file(directory);
  file.part();
  return file.faults();
}

}  // namespace

const std::vector<StoredFile>& stored_files() {
  static const std::vector<StoredFile> all = {
      {"settings.db", settings, refhost::SettingsStore::inspect},
      {"users.db", users, UserStore::inspect},
      {"audit.db", audit, refhost::AuditLog::inspect},
      {kJournalFileName, journal, Journal::inspect},
  };
  return all;
}

}  // namespace achost
