#include "memory_line.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>

namespace {

constexpr int kDescriptor = 1'000'000;  // far beyond those of the system

memory_line::Line* connected = nullptr;
std::chrono::milliseconds timeout(0);

}  // namespace

void memory_line::connect(Line* line) { connected = line; }

extern "C" {
int __real_open(const char* path, int flags, ...);
int __real_tcsetattr(int fd, int actions, const termios* line);
int __real_close(int fd);
ssize_t __real_write(int fd, const void* data, std::size_t size);
ssize_t __real_read(int fd, void* data, std::size_t size);

int __wrap_open(const char* path, int flags, ...) {
  if (connected != nullptr && std::strcmp(path, memory_line::kPath) == 0) {
    return kDescriptor;
  }
  std::va_list arguments;
  va_start(arguments, flags);
  const int mode = va_arg(arguments, int);
  va_end(arguments);
  return __real_open(path, flags, mode);
}

int __wrap_tcsetattr(int fd, int actions, const termios* line) {
  if (fd != kDescriptor) {
    return __real_tcsetattr(fd, actions, line);
  }
  timeout = std::chrono::milliseconds(100) * line->c_cc[VTIME];
  return 0;
}

int __wrap_close(int fd) { return fd == kDescriptor ? 0 : __real_close(fd); }

ssize_t __wrap_write(int fd, const void* data, std::size_t size) {
  if (fd != kDescriptor) {
    return __real_write(fd, data, size);
  }
  if (!connected->write({static_cast<const unsigned char*>(data), size})) {
    errno = EIO;
    return -1;
  }
  return static_cast<ssize_t>(size);
}

ssize_t __wrap_read(int fd, void* data, std::size_t size) {
  if (fd != kDescriptor) {
    return __real_read(fd, data, size);
  }
  const auto bytes = connected->read(size, timeout);
  std::ranges::copy(bytes, static_cast<unsigned char*>(data));
  return static_cast<ssize_t>(bytes.size());
}
}
