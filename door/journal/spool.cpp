#include "door/journal/spool.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>

namespace achost {
namespace {

constexpr std::uint64_t kMark = 0x31306c6f6f70736a;  // "jspool01" in a file of most machines

// Before each record.
struct Prefix {
  std::uint32_t size;
  std::uint32_t sum;
};

// FNV-1a: against a file of which a power failure left a part.
std::uint32_t sum_of(std::string_view record) {
  std::uint32_t sum = 0x811c9dc5;
  for (const char c : record) {
    sum = (sum ^ static_cast<unsigned char>(c)) * 0x01000193;
  }
  return sum;
}

[[noreturn]] void fail(const std::filesystem::path& file, int reason) {
  throw std::system_error(reason, std::generic_category(), file.string());
}

// A descriptor of the file, which no other user has made, may use or has another name for.
int open_own(const std::filesystem::path& file) {
  const int fd = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
  if (fd < 0) {
    fail(file, errno);
  }
  struct stat status {};
  const bool is_own = fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
                      status.st_nlink == 1 && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
  if (!is_own) {
    close(fd);
    fail(file, EPERM);
  }
  return fd;
}

}  // namespace

// The positions count the bytes that were ever put and taken.
struct Spool::Header {
  alignas(64) std::atomic<std::uint64_t> put;    // written by who puts, behind the record itself
  alignas(64) std::atomic<std::uint64_t> taken;  // written by who takes
  std::atomic<std::uint64_t> mark;
  std::uint64_t ring_size;
};

static_assert(std::atomic<std::uint64_t>::is_always_lock_free, "another process reads them");

Spool::Spool(const std::filesystem::path& file, std::size_t size) : file_(file) {
  const int fd = open_own(file);
  struct stat status {};
  fstat(fd, &status);
  const bool is_new = status.st_size == 0;
  // A file of another size is one of an earlier version's, with nothing in it: only a whole run of it would be.
  const int reason = posix_fallocate(fd, 0, static_cast<off_t>(size));
  if (reason != 0) {
    close(fd);
    if (is_new) {
      unlink(file.c_str());
    }
    fail(file, reason);
  }
  map(fd, size);
  close(fd);
  if (!is_sound()) {
    is_damaged_ = !is_new && header_->mark.load() != 0;
    begin_anew();
  }
}

Spool::Spool(std::size_t size) {
  map(-1, size);
  begin_anew();
}

Spool::~Spool() { munmap(header_, sizeof(Header) + ring_size_); }

void Spool::map(int fd, std::size_t size) {
  void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                            (fd < 0 ? MAP_PRIVATE | MAP_ANONYMOUS : MAP_SHARED) | MAP_POPULATE, fd, 0);
  if (memory == MAP_FAILED) {
    const int reason = errno;
    if (fd >= 0) {
      close(fd);
    }
    fail(file_, reason);
  }
  header_ = static_cast<Header*>(memory);
  ring_ = static_cast<char*>(memory) + sizeof(Header);
  ring_size_ = size - sizeof(Header);
}

// The mark comes last: without it nothing has been put yet.
void Spool::begin_anew() {
  header_->mark.store(0);
  header_->put.store(0);
  header_->taken.store(0);
  header_->ring_size = ring_size_;
  header_->mark.store(kMark);
}

bool Spool::is_sound() const {
  const std::uint64_t put = header_->put.load(std::memory_order_acquire);
  const std::uint64_t taken = header_->taken.load(std::memory_order_acquire);
  return header_->mark.load() == kMark && header_->ring_size == ring_size_ && taken <= put && put - taken <= ring_size_;
}

void Spool::copy_in(std::uint64_t place, const void* data, std::size_t size) {
  const auto begin = static_cast<std::size_t>(place % ring_size_);
  const std::size_t first = std::min(size, ring_size_ - begin);
  std::memcpy(ring_ + begin, data, first);
  std::memcpy(ring_, static_cast<const char*>(data) + first, size - first);
}

void Spool::copy_out(std::uint64_t place, void* data, std::size_t size) const {
  const auto begin = static_cast<std::size_t>(place % ring_size_);
  const std::size_t first = std::min(size, ring_size_ - begin);
  std::memcpy(data, ring_ + begin, first);
  std::memcpy(static_cast<char*>(data) + first, ring_, size - first);
}

bool Spool::put(std::string_view record) {
  if (!has_room(record.size())) {
    return false;
  }
  const std::uint64_t put = header_->put.load(std::memory_order_relaxed);
  const Prefix prefix = {.size = static_cast<std::uint32_t>(record.size()), .sum = sum_of(record)};
  copy_in(put, &prefix, sizeof prefix);
  copy_in(put + sizeof prefix, record.data(), record.size());
  // Behind all the rest, so that a record of which a kill left a part is none.
  header_->put.store(put + sizeof prefix + record.size(), std::memory_order_release);
  return true;
}

bool Spool::has_room(std::size_t size) const {
  const std::uint64_t used =
      header_->put.load(std::memory_order_relaxed) - header_->taken.load(std::memory_order_acquire);
  return sizeof(Prefix) + size <= ring_size_ - used;
}

bool Spool::is_empty() const {
  return header_->put.load(std::memory_order_acquire) == header_->taken.load(std::memory_order_acquire);
}

std::uint64_t Spool::look(std::size_t most, const std::function<void(std::string_view)>& take) {
  const std::uint64_t end = header_->put.load(std::memory_order_acquire);
  std::uint64_t place = header_->taken.load(std::memory_order_relaxed);
  std::string record;
  for (std::size_t i = 0; i < most && place < end; ++i) {
    Prefix prefix{};
    copy_out(place, &prefix, sizeof prefix);
    const bool fits = sizeof prefix + prefix.size <= end - place;
    record.resize(fits ? prefix.size : 0);
    copy_out(place + sizeof prefix, record.data(), record.size());
    if (!fits || sum_of(record) != prefix.sum) {
      is_damaged_ = true;  // where the next one begins is not known
      return end;
    }
    take(record);
    place += sizeof prefix + prefix.size;
  }
  return place;
}

void Spool::drop_to(std::uint64_t place) { header_->taken.store(place, std::memory_order_release); }

void Spool::remove() {
  if (!file_.empty()) {
    unlink(file_.c_str());
    file_.clear();
  }
}

std::vector<std::filesystem::path> spool_files(const std::filesystem::path& state, const std::string& name) {
  std::vector<std::filesystem::path> files;
  const auto add = [&](const std::filesystem::path& directory) {
    if (directory.is_absolute()) {
      files.push_back(directory / name);
    }
  };
  const auto variable = [](const char* which) {
    const char* const value = std::getenv(which);
    return std::string(value == nullptr ? "" : value);
  };
  const std::string own = variable("RUNTIME_DIRECTORY");  // of a service: one, or several behind colons
  add(own.substr(0, own.find(':')));
  add(variable("XDG_RUNTIME_DIR"));
  add("/run/user/" + std::to_string(geteuid()));
  add("/dev/shm");
  add(state);
  return files;
}

}  // namespace achost
