// The way back from a backup.
#pragma once

#include <filesystem>

namespace achost {

// Put what the backup holds in the place of all that is stored, and keep that: its new place is the result. Everything
// is checked before anything is changed; whatever happens meanwhile, the state is the old one or that of the backup.
// The directory is made when missing. Throws refhost::DirectoryInUse while a daemon runs there, Failure (kDamaged) when
// what the backup holds is damaged, and ac::ac_exception.
std::filesystem::path restore(const std::filesystem::path& backup, const std::filesystem::path& state);

// The same in two steps, for a directory whose daemon runs: all but the taking of the place, by whoever restores; and
// by the daemon, which is to end then: whoever opens the directory next takes it over. Returns the place of what is
// there now.
void prepare_restore(const std::filesystem::path& backup, const std::filesystem::path& state);
std::filesystem::path make_restore_ready(const std::filesystem::path& state);

// What was prepared is not wanted.
void forget_restore(const std::filesystem::path& state);

// The same check, and nothing is changed. directory: an empty one to work in.
void check_backup(const std::filesystem::path& backup, const std::filesystem::path& directory);

}  // namespace achost
