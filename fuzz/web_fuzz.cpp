// The page's HTTP side: any bytes from a client without a session, over the real socket. The server goes on, each
// answer is one, and nothing that needs a session is told.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>
#include <thread>

#include "gateway/web/server.h"
#include "input.h"
#include "temporary_directory.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>

namespace {

namespace net = boost::asio;

// Serves until the process ends.
class Serving {
 public:
  Serving() {
    net::co_spawn(context_, server_.accept_all(), net::detached);
    std::thread([this] { context_.run(); }).detach();
  }

  std::uint16_t port() const { return server_.place().port(); }

 private:
  const std::filesystem::path directory_ = fuzz::empty_directory();
  web::Access access_{directory_};
  net::io_context context_{1};
  gateway::Daemon daemon_{context_, directory_};
  web::Live live_{context_, daemon_};
  web::Traffic traffic_{context_, daemon_};
  web::Field field_{context_, daemon_};
  web::Site site_{context_, access_, live_, traffic_, field_, daemon_, {"localhost"}, {1e9, 1e9}};
  web::Server server_{context_, site_, {net::ip::address_v4::loopback(), 0}, nullptr};
};

std::uint16_t port() {
  static const auto* const serving = new Serving();  // its thread goes on
  return serving->port();
}

std::string conversation(const std::string& said) {
  const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in place{};
  place.sin_family = AF_INET;
  place.sin_port = htons(port());
  place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  fuzz::require(connect(client, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0, "the server listens");
  std::size_t sent = 0;
  for (ssize_t count = 1; sent < said.size() && count > 0;
       sent += static_cast<std::size_t>(std::max<ssize_t>(count, 0))) {
    count = send(client, said.data() + sent, said.size() - sent, MSG_NOSIGNAL);
  }
  shutdown(client, SHUT_WR);
  std::string heard;
  char buffer[4096];
  for (ssize_t count = 1; count > 0;) {
    count = recv(client, buffer, sizeof buffer, 0);
    heard.append(buffer, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  }
  close(client);
  return heard;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string heard = conversation({reinterpret_cast<const char*>(data), size});
  fuzz::require(heard.empty() || heard.starts_with("HTTP/1.1 ") || heard.starts_with("HTTP/1.0 "), "an answer is one");
  fuzz::require(heard.find("event: ") == heard.npos, "a stranger does not look on");
  fuzz::require(heard.find("achost_up") == heard.npos, "a stranger gets no figures");
  fuzz::require(heard.find("Set-Cookie") == heard.npos, "a stranger gets no session");
  return 0;
}
