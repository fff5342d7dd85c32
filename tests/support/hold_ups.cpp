// Loaded before the C library (LD_PRELOAD): makes the program wait for its disk, or fail to get memory, for as long as
// the test wants it to (hold_ups.h).
#include "hold_ups.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

HoldUps* held = nullptr;  // null until the program has started

[[gnu::constructor]] void begin() {
  const char* const file = std::getenv("HOLD_UPS");
  const int fd = file == nullptr ? -1 : open(file, O_RDWR | O_CLOEXEC);
  if (fd < 0) {
    return;
  }
  void* const memory = mmap(nullptr, sizeof(HoldUps), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  held = memory == MAP_FAILED ? nullptr : static_cast<HoldUps*>(memory);
}

bool is_held(const char* path) {
  return held != nullptr && held->disk && std::strncmp(path, held->path.data(), std::strlen(held->path.data())) == 0;
}

// For as long as the disk does not answer.
void wait_for(const char* path) {
  while (is_held(path)) {
    const timespec moment{.tv_sec = 0, .tv_nsec = 2'000'000};
    nanosleep(&moment, nullptr);
  }
}

void wait_for(int fd) {
  if (held == nullptr || !held->disk) {
    return;
  }
  const int before = errno;
  char link[32] = "/proc/self/fd/";  // NOLINT: no memory, which may be what is wanting
  char* end = link + std::strlen(link);
  char digits[12];  // NOLINT
  int count = 0;
  for (int rest = fd; rest > 0 || count == 0; rest /= 10) {
    digits[count++] = static_cast<char>('0' + rest % 10);
  }
  while (count > 0) {
    *end++ = digits[--count];
  }
  *end = '\0';
  char path[4096];  // NOLINT
  if (const ssize_t length = readlink(link, path, sizeof path - 1); length > 0) {
    path[length] = '\0';
    wait_for(path);
  }
  errno = before;
}

// The function that this one stands before.
template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool no_memory() {
  if (held == nullptr || !held->memory) {
    return false;
  }
  errno = ENOMEM;
  return true;
}

}  // namespace

extern "C" {

int fsync(int fd) {
  wait_for(fd);
  static auto* const real = next<int(int)>("fsync");
  return real(fd);
}

int fdatasync(int fd) {
  wait_for(fd);
  static auto* const real = next<int(int)>("fdatasync");
  return real(fd);
}

ssize_t write(int fd, const void* data, size_t size) {
  wait_for(fd);
  static auto* const real = next<ssize_t(int, const void*, size_t)>("write");
  return real(fd, data, size);
}

ssize_t pwrite64(int fd, const void* data, size_t size, off64_t offset) {
  wait_for(fd);
  static auto* const real = next<ssize_t(int, const void*, size_t, off64_t)>("pwrite64");
  return real(fd, data, size, offset);
}

ssize_t pwrite(int fd, const void* data, size_t size, off_t offset) {
  wait_for(fd);
  static auto* const real = next<ssize_t(int, const void*, size_t, off_t)>("pwrite");
  return real(fd, data, size, offset);
}

int ftruncate64(int fd, off64_t size) noexcept {
  wait_for(fd);
  static auto* const real = next<int(int, off64_t)>("ftruncate64");
  return real(fd, size);
}

int unlink(const char* path) noexcept {
  wait_for(path);
  static auto* const real = next<int(const char*)>("unlink");
  return real(path);
}

int unlinkat(int directory, const char* path, int flags) noexcept {
  wait_for(directory);
  static auto* const real = next<int(int, const char*, int)>("unlinkat");
  return real(directory, path, flags);
}

int rename(const char* from, const char* to) noexcept {
  wait_for(to);
  static auto* const real = next<int(const char*, const char*)>("rename");
  return real(from, to);
}

void* malloc(size_t size) {
  static auto* const real = next<void*(size_t)>("malloc");
  return no_memory() ? nullptr : real(size);
}

void* calloc(size_t count, size_t size) {
  static auto* const real = next<void*(size_t, size_t)>("calloc");
  return no_memory() ? nullptr : real(count, size);
}

void* realloc(void* old, size_t size) {
  static auto* const real = next<void*(void*, size_t)>("realloc");
  return no_memory() ? nullptr : real(old, size);
}

void* aligned_alloc(size_t alignment, size_t size) {
  static auto* const real = next<void*(size_t, size_t)>("aligned_alloc");
  return no_memory() ? nullptr : real(alignment, size);
}

int posix_memalign(void** result, size_t alignment, size_t size) {
  static auto* const real = next<int(void**, size_t, size_t)>("posix_memalign");
  return no_memory() ? ENOMEM : real(result, alignment, size);
}

}  // extern "C"
