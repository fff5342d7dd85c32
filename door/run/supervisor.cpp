#include "door/run/supervisor.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "refhost/log.h"

namespace achost {

Supervisor::Supervisor() {
  const char* const path = std::getenv("NOTIFY_SOCKET");
  if (path == nullptr || *path == '\0') {
    return;
  }
  sockaddr_un address{};
  const std::size_t length = std::strlen(path);
  if (length >= sizeof address.sun_path) {
    refhost::log::warning("the path in NOTIFY_SOCKET is too long: the supervisor is not told anything");
    return;
  }
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path, length);
  if (*path == '@') {
    address.sun_path[0] = '\0';  // a name that is no file
  }
  socket_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
  if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), size) != 0) {
    refhost::log::warning(std::string("cannot reach the supervisor at ") + path + ": " + std::strerror(errno));
  }
}

Supervisor::~Supervisor() {
  if (socket_ >= 0) {
    close(socket_);
  }
}

void Supervisor::tell(const std::string& state) const {
  if (socket_ >= 0) {
    [[maybe_unused]] const ssize_t sent = send(socket_, state.data(), state.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  }
}

std::optional<std::chrono::milliseconds> Supervisor::watchdog_period() {
  const char* const text = std::getenv("WATCHDOG_USEC");
  std::int64_t microseconds = 0;
  if (text == nullptr || std::from_chars(text, text + std::strlen(text), microseconds).ec != std::errc() ||
      microseconds <= 0) {
    return std::nullopt;
  }
  return std::max(std::chrono::milliseconds(1),
                  std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::microseconds(microseconds / 2)));
}

}  // namespace achost
