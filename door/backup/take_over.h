// What an earlier process has left in a state directory.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace achost {

inline constexpr const char* kSnapshotName = "backup.under-way";
inline constexpr const char* kRestoreName = "restore.under-way";  // not whole yet
inline constexpr const char* kRestoredName = "restore.ready";     // takes the others' place, whatever happens

// In kRestoredName: the name of the directory that gets what was there.
inline constexpr const char* kKeptName = "kept";

// The name of the directory that will get what is there, once a restore is ready.
std::string kept_name(const std::filesystem::path& state);

// For whoever has just taken the directory's lock, before anything is opened: a restore that was cut off is done to its
// end, or never was, and other things under way are removed. The directory that keeps what was there before a restore,
// when one is done. Throws std::filesystem::filesystem_error; it may be called again then.
std::optional<std::filesystem::path> take_over(const std::filesystem::path& state);

// Make sure that what is in the file or directory is on the disk. Throws std::filesystem::filesystem_error.
void sync_to_disk(const std::filesystem::path& path);

}  // namespace achost
