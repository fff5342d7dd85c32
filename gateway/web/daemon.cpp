#include "gateway/web/daemon.h"

#include <sys/socket.h>
#include <unistd.h>

#include <boost/asio/buffer.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/basic_stream.hpp>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "cli/line_socket.h"

namespace web {
namespace {

using Local = net::local::stream_protocol;
using boost::system::error_code;

constexpr std::size_t kLongestLine = std::size_t{1} << 20;
constexpr std::chrono::seconds kPatience{5};

int connected(const std::filesystem::path& directory) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  int reason = fd < 0 ? errno : 0;
  if (reason == 0) {
    try {
      reason = achost::SocketPlace(directory, "control.sock").connect(fd);
    } catch (const std::system_error& failure) {
      reason = failure.code().value();
    }
  }
  if (reason == 0) {
    return fd;
  }
  close(fd);
  const std::string way_out = reason == EACCES   ? ": this program's user is to be in the group achost-admin"
                              : reason == EAGAIN ? ": it hangs or is stopped"
                                                 : ": is achost running there?";
  throw NoDaemon("no door daemon answers at " + (directory / "control.sock").string() + way_out);
}

}  // namespace

class Daemon::Connection {
 public:
  Connection(net::io_context& context, int fd) : stream_(context) { stream_.socket().assign(Local(), fd); }

  net::awaitable<void> send(const Json& request) {
    const std::string line = request.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    error_code failure;
    stream_.expires_after(kPatience);
    co_await net::async_write(stream_, net::buffer(line), net::redirect_error(net::use_awaitable, failure));
    // A daemon that has closed says why before; receive() reads it.
  }

  // The next line. An error is thrown; for_ever: it may be long in coming.
  net::awaitable<Json> receive(bool for_ever = false) {
    error_code failure;
    for_ever ? stream_.expires_never() : stream_.expires_after(kPatience);
    const std::size_t size = co_await net::async_read_until(stream_, net::dynamic_buffer(pending_, kLongestLine), '\n',
                                                            net::redirect_error(net::use_awaitable, failure));
    if (failure) {
      throw NoDaemon(failure == beast::error::timeout ? "the door daemon does not answer" : "the door daemon has gone");
    }
    Json line = Json::parse(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(size), nullptr, false);
    pending_.erase(0, size);
    if (!line.is_object()) {
      throw NoDaemon("the door daemon says what is no JSON");
    }
    if (!line.value("ok", true)) {
      throw Refused(line.value("error", "the door daemon refuses"));
    }
    co_return line;
  }

 private:
  beast::basic_stream<Local> stream_;
  std::string pending_;
};

Daemon::Daemon(net::io_context& context, std::filesystem::path directory)
    : context_(context), directory_(std::move(directory)) {}

std::unique_ptr<Daemon::Connection> Daemon::connect() {
  return std::make_unique<Connection>(context_, connected(directory_));
}

net::awaitable<Json> Daemon::ask(const Json& request) {
  if (*asking_ >= kMostAtOnce) {
    throw NoDaemon("the door daemon is asked too much at once: try again");
  }
  ++*asking_;
  const std::shared_ptr<void> asking(nullptr, [count = asking_](void*) { --*count; });
  const auto connection = connect();
  co_await connection->send(request);
  Json answer = co_await connection->receive();
  co_return answer;
}

net::awaitable<void> Daemon::follow(const Json& request, const std::function<bool(const Json&)>& take) {
  const auto connection = connect();
  co_await connection->send(request);
  const Json beginning = co_await connection->receive();
  for (bool goes_on = take(beginning); goes_on;) {
    const Json line = co_await connection->receive(true);
    goes_on = take(line);
  }
}

}  // namespace web
