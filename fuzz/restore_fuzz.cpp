// A backup of which nobody knows who has written it: any bytes as the backup itself, or as one of the stores in it. It
// is refused and the state stays as it was, or the state is whole.
#include <array>
#include <fstream>
#include <iterator>

#include "ac/exception.h"
#include "door/backup/backup_file.h"
#include "door/backup/restore.h"
#include "door/backup/stored_files.h"
#include "door/services/user_store.h"
#include "input.h"
#include "refhost/log.h"
#include "temporary_directory.h"

namespace {

using std::filesystem::path;

void write_backup(fuzz::Input& input, const path& file) {
  const auto& all = achost::stored_files();
  const std::size_t kind = input.below(all.size() + 1);
  const auto content = input.all_text();
  if (kind == all.size()) {
    std::ofstream(file, std::ios::binary) << content;
    return;
  }
  achost::BackupWriter writer(file, true);
  writer.begin(all[kind].name, static_cast<std::int64_t>(content.size()));
  writer.add(content);
  writer.close();
}

std::string users_of(const path& state) {
  std::ifstream file(state / "users.db", std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  refhost::log::set_threshold(refhost::log::Level::off);
  fuzz::Input input(data, size);
  const auto directory = fuzz::empty_directory();
  const auto state = directory / "state";
  achost::UserStore(state, achost::UserStore::Access::read_write).put({.id = 7, .name = "Ana"});
  const auto before = users_of(state);
  write_backup(input, directory / "backup");
  try {
    achost::restore(directory / "backup", state);
  } catch (const std::exception&) {
    fuzz::require(users_of(state) == before, "a backup that is refused changes nothing");
    fuzz::require(!std::filesystem::exists(state / "restore.under-way"), "and leaves nothing");
    return 0;
  }
  for (const auto& file : achost::stored_files()) {
    fuzz::require(file.inspect(state).faults.empty(), "what is restored is whole");
  }
  return 0;
}
