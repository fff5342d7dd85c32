#include "door/backup/take_over.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

namespace achost {
namespace {

namespace fs = std::filesystem;

// What SQLite keeps beside a database goes with it.
constexpr const char* kSuffixes[] = {"", "-wal", "-shm"};

// Whose the state is.
void make_like(const fs::path& directory, const fs::path& state) {
  struct stat status {};
  if (stat(state.c_str(), &status) == 0 && geteuid() == 0) {
    [[maybe_unused]] const int refused = lchown(directory.c_str(), status.st_uid, status.st_gid);
  }
}

std::string word_in(const fs::path& file) {
  std::string word;
  std::ifstream(file) >> word;
  return word;
}

// First what was there, then what takes its place: as long as a new file has not, what stands there is an old one.
void put_in_place(const fs::path& file, const fs::path& state, const fs::path& kept) {
  const fs::path name = file.filename();
  for (const char* const suffix : kSuffixes) {
    const auto old = state / (name.string() + suffix);
    if (fs::exists(fs::symlink_status(old))) {
      fs::rename(old, kept / old.filename());
    }
  }
  fs::rename(file, state / name);
}

}  // namespace

std::string kept_name(const fs::path& state) { return word_in(state / kRestoredName / kKeptName); }

void sync_to_disk(const fs::path& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  const bool done = fd >= 0 && fsync(fd) == 0;
  const int reason = errno;
  if (fd >= 0) {
    close(fd);
  }
  if (!done) {
    throw fs::filesystem_error("cannot write", path, std::error_code(reason, std::generic_category()));
  }
}

std::optional<fs::path> take_over(const fs::path& state) {
  for (const char* const name : {kSnapshotName, kRestoreName}) {
    fs::remove_all(state / name);
  }
  const auto ready = state / kRestoredName;
  if (!fs::is_directory(fs::symlink_status(ready))) {
    return std::nullopt;
  }
  const auto kept = state / kept_name(state);
  fs::create_directory(kept);
  fs::permissions(kept, fs::perms::owner_all);
  make_like(kept, state);
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(ready)) {
    if (entry.path().filename() != kKeptName) {
      files.push_back(entry.path());
    }
  }
  for (const auto& file : files) {
    put_in_place(file, state, kept);
  }
  sync_to_disk(kept);
  sync_to_disk(state);
  fs::remove_all(ready);
  sync_to_disk(state);
  return kept;
}

}  // namespace achost
