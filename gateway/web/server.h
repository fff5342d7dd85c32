// The listening socket and its connections.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "gateway/web/places.h"
#include "gateway/web/site.h"

namespace web {

// How long a server waits for its clients.
struct Patience {
  std::chrono::milliseconds request = std::chrono::seconds(5);  // for the rest of one that has begun, and the handshake
  std::chrono::milliseconds idle = std::chrono::seconds(30);    // for the next
  std::chrono::milliseconds reader = std::chrono::seconds(10);  // who does not take his answer
};

// One thread uses it, that of the context.
class Server {
 public:
  static constexpr std::size_t kMostConnections = 128;
  static constexpr std::uint32_t kLongestHeader = 8 * 1024;

  // safety: null without TLS. Throws std::runtime_error when it cannot listen there.
  Server(net::io_context& context, Site& site, const net::ip::tcp::endpoint& place, net::ssl::context* safety,
         Patience patience = {});

  // Where it listens; the port is a real one.
  net::ip::tcp::endpoint place() const { return acceptor_.local_endpoint(); }

  // For ever.
  net::awaitable<void> accept_all();

 private:
  void welcome(net::ip::tcp::socket socket);
  template <typename Stream>
  void serve(Stream stream, const std::string& address);

  net::io_context& context_;
  Site& site_;
  net::ip::tcp::acceptor acceptor_;
  net::ssl::context* const safety_;
  const Patience patience_;
  const std::shared_ptr<Places> places_ = std::make_shared<Places>(kMostConnections);
};

}  // namespace web
