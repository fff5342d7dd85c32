#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "door/control/control.h"
#include "door/control/line_socket.h"

namespace achost {
namespace {

constexpr const char* kSocketName = "control.sock";

int connected(const std::filesystem::path& directory) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
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
  if (reason == ENOENT || reason == ECONNREFUSED) {
    throw NoHost(directory);
  }
  throw ac::ac_exception("cannot reach the host on " + directory.string() + ": " + std::strerror(reason), true);
}

}  // namespace

NoHost::NoHost(const std::filesystem::path& directory)
    : ac_exception(
          "no host runs on " + directory.string() + ": start one with achost run --state " + directory.string(), true) {
}

ControlClient::ControlClient(const std::filesystem::path& directory) : socket_(connected(directory)) {}

ControlClient::~ControlClient() { close(socket_); }

void ControlClient::send(const Json& request) {
  // A server that has closed says why before; receive() reads it.
  send_all(socket_, request.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
}

Json ControlClient::receive() {
  std::array<char, 4096> buffer;
  for (;;) {
    if (const std::size_t end = pending_.find('\n'); end != std::string::npos) {
      const std::string line = pending_.substr(0, end);
      pending_.erase(0, end + 1);
      return Json::parse(line);
    }
    const ssize_t received = recv(socket_, buffer.data(), buffer.size(), 0);
    if (received < 0 && errno == EINTR) {
      continue;
    }
    if (received <= 0) {
      throw ac::ac_exception("the host has gone", true);
    }
    pending_.append(buffer.data(), static_cast<std::size_t>(received));
  }
}

}  // namespace achost
