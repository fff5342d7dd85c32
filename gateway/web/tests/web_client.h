// Requests over a real socket, byte by byte where a test wants that.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>

#include "refhost/tests/support.h"

namespace web::test {

struct Reply {
  int status = 0;  // 0: none came
  std::string header;
  std::string body;

  // A header's value; empty when it is not there. Names are as the server writes them.
  std::string field(const std::string& name) const {
    const auto at = header.find("\r\n" + name + ": ");
    const auto begin = at + name.size() + 4;
    return at == header.npos ? "" : header.substr(begin, header.find("\r\n", begin) - begin);
  }
};

// A connection to a port of this machine.
class Client {
 public:
  explicit Client(std::uint16_t port) : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const timeval patience{.tv_sec = refhost::test::kPatience.count(), .tv_usec = 0};
    setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(port);
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    is_there_ = connect(socket_, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0;
  }
  ~Client() { close(socket_); }
  Client(Client&& other) noexcept
      : socket_(std::exchange(other.socket_, -1)), is_there_(other.is_there_), pending_(std::move(other.pending_)) {}
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  bool is_there() const { return is_there_; }
  int descriptor() const { return socket_; }

  // False when the other end has gone, or takes no more.
  bool send(std::string_view text) const {
    while (!text.empty()) {
      const ssize_t sent = ::send(socket_, text.data(), text.size(), MSG_NOSIGNAL);
      if (sent <= 0) {
        return false;
      }
      text.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
  }

  // Everything up to the mark, with it; less when the connection ends before.
  std::string receive_until(const std::string& mark) {
    std::size_t at = 0;
    while ((at = pending_.find(mark)) == pending_.npos && read_more()) {
    }
    return take(at == pending_.npos ? pending_.size() : at + mark.size());
  }

  Reply receive() {
    Reply reply;
    reply.header = receive_until("\r\n\r\n");
    if (reply.header.size() < 12) {
      return reply;
    }
    reply.status = std::stoi(reply.header.substr(9, 3));
    const std::string length = reply.field("Content-Length");
    const std::size_t size = length.empty() ? 0 : std::stoul(length);
    while (pending_.size() < size && read_more()) {
    }
    reply.body = take(std::min(size, pending_.size()));
    return reply;
  }

 private:
  bool read_more() {
    std::array<char, 4096> buffer{};
    const ssize_t received = recv(socket_, buffer.data(), buffer.size(), 0);
    pending_.append(buffer.data(), received > 0 ? static_cast<std::size_t>(received) : 0);
    return received > 0;
  }

  std::string take(std::size_t size) {
    std::string text = pending_.substr(0, size);
    pending_.erase(0, size);
    return text;
  }

  int socket_;
  bool is_there_ = false;
  std::string pending_;
};

// Somebody's browser: it says what browsers say by themselves, and keeps the cookie.
class Browser {
 public:
  explicit Browser(std::uint16_t port) : port_(port), host_("localhost:" + std::to_string(port)) {}

  Reply get(const std::string& path, const std::string& more = "") const {
    return ask("GET " + path + " HTTP/1.1\r\nHost: " + host_ + "\r\n" + more + cookie_line() + "\r\n");
  }

  Reply post(const std::string& path, const nlohmann::json& body) const {
    return post(path, body, "Origin: http://" + host_ + "\r\n");
  }
  Reply post(const std::string& path, const nlohmann::json& body, const std::string& more) const {
    const std::string text = body.dump();
    return ask("POST " + path + " HTTP/1.1\r\nHost: " + host_ + "\r\nContent-Length: " + std::to_string(text.size()) +
               "\r\n" + more + cookie_line() + "\r\n" + text);
  }

  Reply ask(const std::string& text) const {
    Client client(port_);
    client.send(text);
    return client.receive();
  }

  // The reply to a link's secret, whose session is kept.
  Reply enter(const std::string& secret) {
    Reply reply = post("/api/session", {{"link", secret}});
    const std::string set = reply.field("Set-Cookie");
    cookie_ = set.substr(0, set.find(';'));
    return reply;
  }

  const std::string& cookie() const { return cookie_; }
  void take_cookie(const std::string& cookie) { cookie_ = cookie; }
  std::string cookie_line() const { return cookie_.empty() ? "" : "Cookie: " + cookie_ + "\r\n"; }
  const std::string& host() const { return host_; }

 private:
  const std::uint16_t port_;
  const std::string host_;
  std::string cookie_;
};

}  // namespace web::test
