#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <system_error>

#include "cli/line_socket.h"
#include "door/control/control.h"

namespace achost {
namespace {

constexpr const char* kSocketName = "control.sock";

int connected(const std::filesystem::path& directory) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  // Of a host that hangs the socket may be full.
  const timeval patience{.tv_sec = ControlClient::kPatience.count(), .tv_usec = 0};
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  int reason = fd < 0 ? errno : 0;
  if (reason == 0) {
    try {
      reason = SocketPlace(directory, kSocketName).connect(fd);
    } catch (const std::system_error& failure) {
      reason = failure.code().value();
    }
  }
  if (reason == 0) {
    return fd;
  }
  close(fd);
  if (reason == EAGAIN) {
    throw ac::ac_exception("the host on " + directory.string() + " takes no connection: it hangs or is stopped", true);
  }
  if (reason == ENOENT || reason == ECONNREFUSED) {
    throw NoHost(directory);
  }
  const auto way_out =
      reason == EACCES ? "; try it as root, or as whom " + directory.string() + " belongs to" : std::string();
  throw ac::ac_exception("cannot reach the host on " + directory.string() + ": " + std::strerror(reason) + way_out,
                         true);
}

// "process 7, which is stopped (kill -CONT 7 lets it go on)".
std::string process_at(int socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
    return "its process";
  }
  const std::string pid = std::to_string(peer.pid);
  std::ifstream stat("/proc/" + pid + "/stat");
  const std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
  const std::size_t name_end = text.rfind(") ");  // the name may hold anything
  const bool is_stopped = name_end != std::string::npos && text.compare(name_end, 3, ") T") == 0;
  return "process " + pid +
         (is_stopped ? ", which is stopped (kill -CONT " + pid + " lets it go on)"
                     : ", which hangs or has much to do: try again, or end it (kill " + pid + ")");
}

bool can_be_read(int socket, std::optional<std::chrono::milliseconds> patience) {
  pollfd watched{socket, POLLIN, 0};
  const int limit = patience.has_value() ? static_cast<int>(patience->count()) : -1;
  int ready = 0;
  while ((ready = poll(&watched, 1, limit)) < 0 && errno == EINTR) {
  }
  return ready != 0;
}

}  // namespace

NoHost::NoHost(const std::filesystem::path& directory)
    : ac_exception(
          "no host runs on " + directory.string() + ": start one with achost run --state " + directory.string(), true) {
}

HostGone::HostGone() : ac_exception("the host has gone", true) {}

ControlClient::ControlClient(const std::filesystem::path& directory)
    : directory_(directory), socket_(connected(directory)) {}

ControlClient::~ControlClient() { close(socket_); }

void ControlClient::send(const Json& request) {
  // A server that has closed says why before; receive() reads it.
  send_all(socket_, line_of(request));
}

bool ControlClient::send_bytes(std::string_view bytes) {
  return send_all(socket_, line_of({{"bytes", bytes.size()}})) && send_all(socket_, bytes);
}

void ControlClient::read_more(std::optional<std::chrono::milliseconds> patience) {
  std::array<char, 4096> buffer;
  ssize_t received = -1;
  do {
    if (!can_be_read(socket_, patience)) {
      throw ac::ac_exception("the host on " + directory_.string() + " does not answer: it is " + process_at(socket_),
                             true);
    }
    received = recv(socket_, buffer.data(), buffer.size(), 0);
  } while (received < 0 && errno == EINTR);
  if (received <= 0) {
    throw HostGone();
  }
  pending_.append(buffer.data(), static_cast<std::size_t>(received));
}

Json ControlClient::receive(std::optional<std::chrono::milliseconds> patience) {
  std::size_t end = 0;
  while ((end = pending_.find('\n')) == std::string::npos) {
    read_more(patience);
  }
  const std::string line = pending_.substr(0, end);
  pending_.erase(0, end + 1);
  return Json::parse(line);
}

std::string ControlClient::receive_bytes(const Json& line, std::optional<std::chrono::milliseconds> patience) {
  const auto count = std::min(line.at("bytes").get<std::size_t>(), kLongestPiece);
  while (pending_.size() < count) {
    read_more(patience);
  }
  std::string bytes = pending_.substr(0, count);
  pending_.erase(0, count);
  return bytes;
}

}  // namespace achost
