#include "gateway/web/server.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/steady_timer.hpp>
#include <stdexcept>

#include "gateway/web/connection.h"

namespace web {
namespace {

using boost::system::error_code;
using net::ip::tcp;

// Whose requests are counted together: of an address of the sixth version the network, which is one person's.
std::string address_of(const tcp::socket& socket) {
  error_code failure;
  const auto address = socket.remote_endpoint(failure).address();
  if (failure || address.is_v4()) {
    return address.to_string();
  }
  auto bytes = address.to_v6().to_bytes();
  constexpr std::size_t kNetwork = 8;
  std::fill(bytes.begin() + kNetwork, bytes.end(), 0);
  return net::ip::address_v6(bytes).to_string();
}

}  // namespace

Server::Server(net::io_context& context, Site& site, const tcp::endpoint& place, net::ssl::context* safety,
               Patience patience)
    : context_(context), site_(site), acceptor_(context), safety_(safety), patience_(patience) {
  error_code failure;
  acceptor_.open(place.protocol(), failure);
  acceptor_.set_option(net::socket_base::reuse_address(true), failure);
  acceptor_.bind(place, failure);
  if (!failure) {
    acceptor_.listen(net::socket_base::max_listen_connections, failure);
  }
  if (failure) {
    throw std::runtime_error("cannot listen at " + place.address().to_string() + ":" + std::to_string(place.port()) +
                             ": " + failure.message());
  }
}

net::awaitable<void> Server::accept_all() {
  net::steady_timer pause(context_);
  for (;;) {
    error_code failure;
    tcp::socket socket = co_await acceptor_.async_accept(net::redirect_error(net::use_awaitable, failure));
    if (!failure && places_->make_room()) {
      welcome(std::move(socket));
    } else if (failure) {  // no descriptor is left, say
      pause.expires_after(std::chrono::milliseconds(200));
      co_await pause.async_wait(net::redirect_error(net::use_awaitable, failure));
    }
  }
}

void Server::welcome(tcp::socket socket) {
  error_code failure;
  socket.set_option(tcp::no_delay(true), failure);
  const std::string address = address_of(socket);
  if (safety_ == nullptr) {
    serve(beast::tcp_stream(std::move(socket)), address);
  } else {
    serve(beast::ssl_stream<beast::tcp_stream>(std::move(socket), *safety_), address);
  }
}

template <typename Stream>
void Server::serve(Stream stream, const std::string& address) {
  const auto connection = std::make_shared<Connection<Stream>>(std::move(stream), address, site_, places_, patience_);
  net::co_spawn(
      context_, [connection] { return connection->serve(); }, net::detached);
}

}  // namespace web
