#include "cli/line_socket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

namespace achost {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr auto kNever = steady_clock::time_point::max();

// Whether something can be read before the deadline; also true when the peer has gone.
bool wait_to_read(int socket, steady_clock::time_point deadline) {
  for (;;) {
    int left = -1;
    if (deadline != kNever) {
      left = static_cast<int>(
          std::max<std::int64_t>(std::chrono::ceil<milliseconds>(deadline - steady_clock::now()).count(), 0));
    }
    pollfd watched{socket, POLLIN, 0};
    const int ready = poll(&watched, 1, left);
    if (ready >= 0 || errno != EINTR) {
      return ready > 0;
    }
  }
}

template <typename Call>
int with_address(const std::string& path, Call call) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return call(reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 0 : errno;
}

}  // namespace

SocketPlace::SocketPlace(const std::filesystem::path& directory, const std::string& name)
    : directory_(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)), name_(name) {
  if (directory_ < 0) {
    throw std::system_error(errno, std::generic_category(), directory.string());
  }
}

SocketPlace::~SocketPlace() { close(directory_); }

int SocketPlace::bind(int socket) const {
  return with_address(path(), [&](const sockaddr* address, socklen_t size) { return ::bind(socket, address, size); });
}

int SocketPlace::connect(int socket) const {
  return with_address(path(),
                      [&](const sockaddr* address, socklen_t size) { return ::connect(socket, address, size); });
}

void SocketPlace::unlink() const noexcept { unlinkat(directory_, name_.c_str(), 0); }

int SocketPlace::set_mode(mode_t mode) const { return fchmodat(directory_, name_.c_str(), mode, 0) == 0 ? 0 : errno; }

std::string SocketPlace::path() const { return "/proc/self/fd/" + std::to_string(directory_) + "/" + name_; }

bool send_all(int socket, std::string_view text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t sent = ::send(socket, text.data() + done, text.size() - done, MSG_NOSIGNAL);
    if (sent < 0 && errno != EINTR) {
      return false;
    }
    done += static_cast<std::size_t>(std::max<ssize_t>(sent, 0));
  }
  return true;
}

LineReader::Outcome LineReader::next(std::string& line, milliseconds patience, std::optional<milliseconds> idle) {
  const auto after = [](milliseconds time) { return steady_clock::now() + time; };
  auto deadline = idle.has_value() ? after(*idle) : kNever;
  bool has_begun = false;
  std::array<char, 4096> buffer;
  while (!take(line)) {
    if (pending_.size() >= longest_) {
      return Outcome::too_long;
    }
    if (!pending_.empty() && !std::exchange(has_begun, true)) {
      deadline = after(patience);
    }
    if (!wait_to_read(socket_, deadline)) {
      return has_begun ? Outcome::too_late : Outcome::idle;
    }
    const ssize_t received = recv(socket_, buffer.data(), buffer.size(), 0);
    if (received == 0 || (received < 0 && errno != EINTR)) {
      return Outcome::end;
    }
    pending_.append(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(received, 0)));
  }
  return line.size() < longest_ ? Outcome::line : Outcome::too_long;
}

LineReader::Outcome LineReader::next_bytes(std::string& bytes, std::size_t count, milliseconds patience) {
  bytes = pending_.substr(0, count);
  pending_.erase(0, bytes.size());
  for (std::size_t begin = bytes.size(); begin < count; begin = bytes.size()) {
    if (!wait_to_read(socket_, steady_clock::now() + patience)) {
      return Outcome::too_late;
    }
    bytes.resize(count);
    const ssize_t received = recv(socket_, bytes.data() + begin, count - begin, 0);
    const int reason = errno;
    bytes.resize(begin + static_cast<std::size_t>(std::max<ssize_t>(received, 0)));
    if (received == 0 || (received < 0 && reason != EINTR)) {
      return Outcome::end;
    }
  }
  return Outcome::line;
}

bool LineReader::take(std::string& line) {
  const std::size_t end = pending_.find('\n');
  if (end == std::string::npos) {
    return false;
  }
  line = pending_.substr(0, end);
  pending_.erase(0, end + 1);
  return true;
}

}  // namespace achost
