#include "reply_line.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace {

std::vector<unsigned char> reply;
std::size_t given = 0;

}  // namespace

void set_reply(const std::vector<unsigned char>& bytes) { reply = bytes; }

// The linker sends the driver's calls here (--wrap). A write begins a transaction.
extern "C" ssize_t __wrap_write(int, const void*, std::size_t size) {
  given = 0;
  return static_cast<ssize_t>(size);
}

extern "C" ssize_t __wrap_read(int, void* data, std::size_t size) {
  // The first chunk is of one byte: no later one then ends together with a frame before the last does, which would be
  // taken for the end of the reply.
  const auto count = std::min({size, reply.size() - given, given == 0 ? std::size_t{1} : std::size_t{1000}});
  std::memcpy(data, reply.data() + given, count);
  given += count;
  return static_cast<ssize_t>(count);
}
