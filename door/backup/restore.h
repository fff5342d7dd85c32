// The way back from a backup.
#pragma once

#include <filesystem>

namespace achost {

// Put what the backup holds in the place of all that is stored, and keep that: its new place is the result. Everything
// is checked before anything is changed; whatever happens meanwhile, the state is the old one or that of the backup.
// The directory is made when missing. Throws refhost::DirectoryInUse while a daemon runs there, Failure (kDamaged) when
// what the backup holds is damaged, and ac::ac_exception.
std::filesystem::path restore(const std::filesystem::path& backup, const std::filesystem::path& state);

// The same check, and nothing is changed. directory: an empty one to work in.
void check_backup(const std::filesystem::path& backup, const std::filesystem::path& directory);

}  // namespace achost
