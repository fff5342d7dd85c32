// The database files at open: any bytes in place of one of them.
#include <array>
#include <fstream>

#include "ac/exception.h"
#include "door/journal/journal.h"
#include "door/services/user_store.h"
#include "input.h"
#include "refhost/audit_log.h"
#include "refhost/log.h"
#include "refhost/settings_store.h"
#include "temporary_directory.h"

namespace {

using std::filesystem::path;

void use_settings(const path& directory) {
  refhost::SettingsStore store(directory, refhost::SettingsStore::Access::read_write);
  store.set("uhf", "read_interval", "777");
  fuzz::require(store.get("uhf", "read_interval") == "777", "a store that opens can be written");
}

void use_audit(const path& directory) {
  refhost::AuditLog log(directory);
  log.append({"now", 1, "details"});
  refhost::AuditLog::read(directory, {}, [](const auto&) {});
}

void use_users(const path& directory) {
  achost::UserStore users(directory, achost::UserStore::Access::read_write);
  users.bind(42, 7, "");
  users.owner_of(42);
  users.users();
  users.cards();
}

void use_journal(const path& directory) {
  achost::Journal journal(directory);
  journal.note({.kind = achost::Kind::alarm, .user = 7, .fields = {{"text", "a"}}});
  journal.seal();
  achost::Journal::read(directory, {.user = 7}, [](const auto&) {});
  achost::Journal::read(directory, {.last = 3}, [](const auto&) {});
  achost::Journal::inspect(directory);
}

struct Store {
  const char* file;
  void (*use)(const path& directory);
};

constexpr std::array kStores{Store{"settings.db", use_settings}, Store{"audit.db", use_audit},
                             Store{"users.db", use_users}, Store{"journal.db", use_journal}};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  refhost::log::set_threshold(refhost::log::Level::off);
  fuzz::Input input(data, size);
  const Store& kind = kStores[input.below(kStores.size())];
  const auto directory = fuzz::empty_directory();
  const auto content = input.all_text();
  std::ofstream(directory / kind.file, std::ios::binary) << content;
  try {
    kind.use(directory);
  } catch (const ac::ac_exception& failure) {
    const std::string text = failure.what();
    fuzz::require(text.find(kind.file) != text.npos, "an error names the file");
  }
  return 0;
}
