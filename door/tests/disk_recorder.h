// What a program does to the files of a directory, and what a power failure may leave of it.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace achost::test {

struct DiskOperation {
  enum class Kind { create, write, truncate, sync, rename, remove, sync_directory };
  Kind kind;
  std::uint64_t file = 0;   // counted from 1; a name may be of several files, one after the other
  std::string name = {};    // of create, rename and remove
  std::string to = {};      // of rename
  std::uint64_t place = 0;  // of write: the offset; of truncate: the size
  std::string data = {};
  std::chrono::steady_clock::time_point at = {};  // when it was done
};

// While it lives, what this process does in an empty directory is written down, in place of the C library's functions:
// by SQLite as by everybody else. "-shm" files, which a crash makes worthless, and the lock are left out. One at a
// time. Each sync takes that long, as a disk does.
class DiskRecorder {
 public:
  explicit DiskRecorder(const std::filesystem::path& directory, std::chrono::milliseconds sync = {});
  ~DiskRecorder();
  DiskRecorder(const DiskRecorder&) = delete;
  DiskRecorder& operator=(const DiskRecorder&) = delete;

  const std::vector<DiskOperation>& operations() const;
};

enum class Syncs { kept, ignored };

// The files as a power failure after the first so many operations may leave them. What was synced is there. Of the
// other writes and truncations of a file each may have arrived or not, in any order, some of them in a part of their
// sectors; of the directory's entries those that were not synced may be there or not.
std::map<std::string, std::string> crash_state(const std::vector<DiskOperation>& operations, std::size_t count,
                                               std::mt19937& random, Syncs syncs);

}  // namespace achost::test
