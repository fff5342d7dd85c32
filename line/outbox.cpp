#include "line/outbox.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace line {
namespace {

// As many as go now.
std::size_t write_some(int fd, ByteView bytes) {
  std::size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t result = write(fd, bytes.data() + written, bytes.size() - written);
    if (result < 0 && errno == EINTR) {
      continue;
    }
    if (result < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      break;
    }
    if (result < 0) {
      throw std::system_error(errno, std::generic_category(), "write");
    }
    written += static_cast<std::size_t>(result);
  }
  return written;
}

}  // namespace

std::size_t Outbox::send(int fd, ByteView bytes) {
  if (!waiting_.empty()) {
    const auto gone = write_some(fd, waiting_);
    waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(gone));
  }
  const std::size_t written = waiting_.empty() ? write_some(fd, bytes) : 0;
  const std::size_t kept = std::min(bytes.size() - written, bound_ - waiting_.size());
  const auto rest = bytes.subspan(written, kept);
  waiting_.insert(waiting_.end(), rest.begin(), rest.end());
  return bytes.size() - written - kept;
}

std::size_t Outbox::clear() { return std::exchange(waiting_, {}).size(); }

}  // namespace line
