#include "door/tests/disk_recorder.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace achost::test {
namespace {

using Kind = DiskOperation::Kind;

struct Recording {
  std::mutex mutex;  // guards all below
  std::optional<std::filesystem::path> directory;
  ino_t inode_of_directory = 0;
  std::map<ino_t, std::uint64_t> files;
  std::uint64_t newest = 0;
  std::vector<DiskOperation> operations;
  std::chrono::milliseconds sync{};  // what one takes
};

// Never destroyed: whoever writes at the end of the process still asks.
Recording& recording() {
  static auto& the_one = *new Recording;
  return the_one;
}

// The name in the directory; empty when it is none of those that are written down.
std::string name_of(const char* path) {
  const std::filesystem::path file(path);
  const std::string name = file.filename();
  const bool is_ours = recording().directory.has_value() && file.parent_path() == *recording().directory;
  return is_ours && !name.ends_with("-shm") && name != "lock" ? name : "";
}

std::optional<std::uint64_t> file_of(int descriptor) {
  struct stat status {};
  if (!recording().directory.has_value() || fstat(descriptor, &status) != 0) {
    return std::nullopt;
  }
  const auto found = recording().files.find(status.st_ino);
  return found == recording().files.end() ? std::nullopt : std::optional(found->second);
}

void add(DiskOperation operation) {
  operation.at = std::chrono::steady_clock::now();
  recording().operations.push_back(std::move(operation));
}

void add_created(int descriptor, const std::string& name) {
  struct stat status {};
  fstat(descriptor, &status);
  const std::uint64_t file = ++recording().newest;
  recording().files[status.st_ino] = file;
  add({.kind = Kind::create, .file = file, .name = name});
}

// The next file, also one that is not written down, may get its inode.
void forget(const char* path) {
  struct stat status {};
  if (!name_of(path).empty() && stat(path, &status) == 0) {
    recording().files.erase(status.st_ino);
  }
}

template <typename Function>
Function* real(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

int opened(const char* path, int flags, mode_t mode) {
  static auto* const open_file = real<int(const char*, int, ...)>("open64");
  const std::lock_guard lock(recording().mutex);
  const std::string name = name_of(path);
  struct stat status {};
  const bool was_there = name.empty() || stat(path, &status) == 0;
  const int descriptor = open_file(path, flags, mode);
  if (descriptor >= 0 && !was_there) {
    add_created(descriptor, name);
  } else if (descriptor >= 0 && !name.empty() && (flags & O_TRUNC) != 0) {
    add({.kind = Kind::truncate, .file = file_of(descriptor).value_or(0)});
  }
  return descriptor;
}

int made(char* path, int flags) {
  static auto* const make = real<int(char*, int)>("mkostemp");
  const std::lock_guard lock(recording().mutex);
  const int descriptor = make(path, flags);
  if (const auto name = name_of(path); descriptor >= 0 && !name.empty()) {
    add_created(descriptor, name);
  }
  return descriptor;
}

ssize_t written(int descriptor, const void* data, std::size_t size, off_t offset) {
  static auto* const write_file = real<ssize_t(int, const void*, std::size_t, off_t)>("pwrite64");
  const std::lock_guard lock(recording().mutex);
  const ssize_t count = write_file(descriptor, data, size, offset);
  if (const auto file = file_of(descriptor); file.has_value() && count > 0) {
    add({.kind = Kind::write,
         .file = *file,
         .place = static_cast<std::uint64_t>(offset),
         .data = {static_cast<const char*>(data), static_cast<std::size_t>(count)}});
  }
  return count;
}

// At the descriptor's own place.
ssize_t written_on(int descriptor, const void* data, std::size_t size) {
  static auto* const write_file = real<ssize_t(int, const void*, std::size_t)>("write");
  const std::unique_lock lock(recording().mutex);
  const auto file = file_of(descriptor);
  const off_t offset = file.has_value() ? lseek(descriptor, 0, SEEK_CUR) : 0;
  const ssize_t count = write_file(descriptor, data, size);
  if (file.has_value() && count > 0) {
    add({.kind = Kind::write,
         .file = *file,
         .place = static_cast<std::uint64_t>(offset),
         .data = {static_cast<const char*>(data), static_cast<std::size_t>(count)}});
  }
  return count;
}

int truncated(int descriptor, off_t size) {
  static auto* const truncate_file = real<int(int, off_t)>("ftruncate64");
  const std::lock_guard lock(recording().mutex);
  const int result = truncate_file(descriptor, size);
  if (const auto file = file_of(descriptor); file.has_value() && result == 0) {
    add({.kind = Kind::truncate, .file = *file, .place = static_cast<std::uint64_t>(size)});
  }
  return result;
}

// Nothing needs to reach a disk here.
int synced(int descriptor) {
  std::unique_lock lock(recording().mutex);
  struct stat status {};
  if (const auto file = file_of(descriptor)) {
    const auto takes = recording().sync;
    lock.unlock();
    std::this_thread::sleep_for(takes);
    lock.lock();
    add({.kind = Kind::sync, .file = *file});
  } else if (fstat(descriptor, &status) == 0 && status.st_ino == recording().inode_of_directory) {
    add({.kind = Kind::sync_directory});
  }
  return 0;
}

int renamed(const char* from, const char* to) {
  static auto* const rename_file = real<int(const char*, const char*)>("rename");
  const std::lock_guard lock(recording().mutex);
  forget(to);
  const int result = rename_file(from, to);
  if (const auto name = name_of(from); result == 0 && !name.empty()) {
    add({.kind = Kind::rename, .name = name, .to = name_of(to)});
  }
  return result;
}

int removed(const char* function, const char* path) {
  const std::lock_guard lock(recording().mutex);
  forget(path);
  const int result = real<int(const char*)>(function)(path);
  if (const auto name = name_of(path); result == 0 && !name.empty()) {
    add({.kind = Kind::remove, .name = name});
  }
  return result;
}

// ---- what is left

constexpr std::size_t kSector = 512;

bool chance(std::mt19937& random, unsigned of_ten) { return random() % 10 < of_ten; }

void put(std::string& content, std::uint64_t place, std::string_view data) {
  content.resize(std::max<std::size_t>(content.size(), place + data.size()));
  content.replace(place, data.size(), data);
}

void apply(std::string& content, const DiskOperation& operation) {
  if (operation.kind == Kind::truncate) {
    content.resize(operation.place);
  } else {
    put(content, operation.place, operation.data);
  }
}

// Some of its sectors.
void apply_torn(std::string& content, const DiskOperation& operation, std::mt19937& random) {
  const std::uint64_t end = operation.place + operation.data.size();
  for (std::uint64_t at = operation.place; at < end;) {
    const std::uint64_t next = std::min(end, (at / kSector + 1) * kSector);
    if (chance(random, 5)) {
      put(content, at, std::string_view(operation.data).substr(at - operation.place, next - at));
    }
    at = next;
  }
}

class Disk {
 public:
  void take(const DiskOperation& operation, Syncs syncs) {
    switch (operation.kind) {
      case Kind::write:
      case Kind::truncate:
        files_[operation.file].pending.push_back(&operation);
        break;
      case Kind::create:
      case Kind::rename:
      case Kind::remove:
        entries_to_come_.push_back(&operation);
        break;
      case Kind::sync:
        if (syncs == Syncs::kept) {
          settle(files_[operation.file]);
        }
        break;
      case Kind::sync_directory:
        if (syncs == Syncs::kept) {
          std::ranges::for_each(entries_to_come_, [this](const auto* entry) { enter(*entry); });
          entries_to_come_.clear();
        }
        break;
    }
  }

  std::map<std::string, std::string> after_power_failure(std::mt19937& random) {
    const unsigned entries = shares(random);
    for (const auto* entry : entries_to_come_) {
      if (chance(random, entries)) {
        enter(*entry);
      }
    }
    std::map<std::string, std::string> left;
    for (const auto& [name, file] : entries_) {
      left[name] = what_arrived(files_[file], random);
    }
    return left;
  }

 private:
  struct File {
    std::string content;
    std::vector<const DiskOperation*> pending;
  };

  // How many of ten arrive: all, none, or some.
  static unsigned shares(std::mt19937& random) {
    constexpr unsigned kShares[] = {0, 3, 5, 8, 10};
    return kShares[random() % std::size(kShares)];
  }

  static void settle(File& file) {
    for (const auto* operation : file.pending) {
      apply(file.content, *operation);
    }
    file.pending.clear();
  }

  void enter(const DiskOperation& operation) {
    if (operation.kind == Kind::create) {
      entries_[operation.name] = operation.file;
    } else if (const auto found = entries_.find(operation.name); found != entries_.end()) {
      const std::uint64_t file = found->second;
      entries_.erase(found);
      if (operation.kind == Kind::rename) {
        entries_[operation.to] = file;
      }
    }
  }

  static std::string what_arrived(const File& file, std::mt19937& random) {
    std::string content = file.content;
    auto operations = file.pending;
    if (chance(random, 5)) {
      std::ranges::shuffle(operations, random);
    }
    const unsigned arriving = shares(random);
    for (const auto* operation : operations) {
      if (!chance(random, arriving)) {
        continue;
      }
      if (operation->kind == Kind::write && chance(random, 3)) {
        apply_torn(content, *operation, random);
      } else {
        apply(content, *operation);
      }
    }
    return content;
  }

  std::map<std::uint64_t, File> files_;
  std::map<std::string, std::uint64_t> entries_;  // that are on the disk
  std::vector<const DiskOperation*> entries_to_come_;
};

}  // namespace

DiskRecorder::DiskRecorder(const std::filesystem::path& directory, std::chrono::milliseconds sync) {
  struct stat status {};
  stat(directory.c_str(), &status);
  const std::lock_guard lock(recording().mutex);
  recording().directory = directory;
  recording().inode_of_directory = status.st_ino;
  recording().files.clear();
  recording().newest = 0;
  recording().operations.clear();
  recording().sync = sync;
}

DiskRecorder::~DiskRecorder() {
  const std::lock_guard lock(recording().mutex);
  recording().directory.reset();
  recording().sync = {};
}

const std::vector<DiskOperation>& DiskRecorder::operations() const { return recording().operations; }

std::map<std::string, std::string> crash_state(const std::vector<DiskOperation>& operations, std::size_t count,
                                               std::mt19937& random, Syncs syncs) {
  Disk disk;
  for (std::size_t i = 0; i < count; ++i) {
    disk.take(operations[i], syncs);
  }
  return disk.after_power_failure(random);
}

}  // namespace achost::test

// The functions of the C library, for the whole process: a program's own come before a library's.
extern "C" {
int recorded_open(const char* path, int flags, ...) __asm__("open");
int recorded_open64(const char* path, int flags, ...) __asm__("open64");
int recorded_mkostemp(char* path, int flags) __asm__("mkostemp");
int recorded_mkostemp64(char* path, int flags) __asm__("mkostemp64");
ssize_t recorded_write(int descriptor, const void* data, std::size_t size) __asm__("write");
ssize_t recorded_pwrite(int descriptor, const void* data, std::size_t size, off_t offset) __asm__("pwrite");
ssize_t recorded_pwrite64(int descriptor, const void* data, std::size_t size, off_t offset) __asm__("pwrite64");
int recorded_ftruncate(int descriptor, off_t size) __asm__("ftruncate");
int recorded_ftruncate64(int descriptor, off_t size) __asm__("ftruncate64");
int recorded_fsync(int descriptor) __asm__("fsync");
int recorded_fdatasync(int descriptor) __asm__("fdatasync");
int recorded_rename(const char* from, const char* to) __asm__("rename");
int recorded_unlink(const char* path) __asm__("unlink");
int recorded_remove(const char* path) __asm__("remove");

// Without O_CREAT there is no mode, and what is read in its place is not used.
#define OPENED                                   \
  va_list arguments;                             \
  va_start(arguments, flags);                    \
  const mode_t mode = va_arg(arguments, mode_t); \
  va_end(arguments);                             \
  return achost::test::opened(path, flags, mode)
int recorded_open(const char* path, int flags, ...) { OPENED; }
int recorded_open64(const char* path, int flags, ...) { OPENED; }
#undef OPENED
int recorded_mkostemp(char* path, int flags) { return achost::test::made(path, flags); }
int recorded_mkostemp64(char* path, int flags) { return achost::test::made(path, flags); }
ssize_t recorded_write(int descriptor, const void* data, std::size_t size) {
  return achost::test::written_on(descriptor, data, size);
}
ssize_t recorded_pwrite(int descriptor, const void* data, std::size_t size, off_t offset) {
  return achost::test::written(descriptor, data, size, offset);
}
ssize_t recorded_pwrite64(int descriptor, const void* data, std::size_t size, off_t offset) {
  return achost::test::written(descriptor, data, size, offset);
}
int recorded_ftruncate(int descriptor, off_t size) { return achost::test::truncated(descriptor, size); }
int recorded_ftruncate64(int descriptor, off_t size) { return achost::test::truncated(descriptor, size); }
int recorded_fsync(int descriptor) { return achost::test::synced(descriptor); }
int recorded_fdatasync(int descriptor) { return achost::test::synced(descriptor); }
int recorded_rename(const char* from, const char* to) { return achost::test::renamed(from, to); }
int recorded_unlink(const char* path) { return achost::test::removed("unlink", path); }
int recorded_remove(const char* path) { return achost::test::removed("remove", path); }
}
