#include "gateway/base/daemon.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "cli/line_socket.h"

namespace gateway {
namespace {

using Local = net::local::stream_protocol;
using boost::system::error_code;

constexpr std::size_t kLongestLine = std::size_t{1} << 20;
constexpr std::size_t kPiece = std::size_t{64} * 1024;

// One more of those that are counted, until it goes.
std::shared_ptr<void> one_of(const std::shared_ptr<int>& count, int most) {
  if (*count >= most) {
    throw NoDaemon("the door daemon is asked too much at once: try again");
  }
  ++*count;
  return {nullptr, [count](void*) { --*count; }};
}

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

void throw_refusal(const Json& line) {
  if (!line.value("ok", true)) {
    throw Refused(line.value("error", "the door daemon refuses"), line.value("status", 1));
  }
}

}  // namespace

Connection::Connection(net::io_context& context, int fd) : stream_(context) { stream_.socket().assign(Local(), fd); }

net::awaitable<bool> Connection::write(std::string_view text) {
  error_code failure;
  stream_.expires_after(kPatience);
  co_await net::async_write(stream_, net::buffer(text.data(), text.size()),
                            net::redirect_error(net::use_awaitable, failure));
  co_return !failure;
}

net::awaitable<bool> Connection::send(const Json& request) {
  const std::string line = line_of(request);
  co_return co_await write(line);
}

net::awaitable<bool> Connection::send_bytes(std::string_view bytes) {
  const std::string piece = line_of({{"bytes", bytes.size()}}) + std::string(bytes);
  const bool is_sent = co_await write(piece);
  co_return is_sent;
}

net::awaitable<std::string> Connection::receive_bytes(std::size_t size) {
  error_code failure;
  stream_.expires_after(kPatience);
  if (size > pending_.size()) {
    co_await net::async_read(stream_, net::dynamic_buffer(pending_),
                             net::transfer_exactly(std::min(size, kLongestLine) - pending_.size()),
                             net::redirect_error(net::use_awaitable, failure));
  }
  if (failure) {
    throw NoDaemon("the door daemon has gone");
  }
  std::string bytes = pending_.substr(0, size);
  pending_.erase(0, size);
  co_return bytes;
}

net::awaitable<Json> Connection::hear(std::optional<std::chrono::milliseconds> patience) {
  error_code failure;
  patience.has_value() ? stream_.expires_after(*patience) : stream_.expires_never();
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
  co_return line;
}

net::awaitable<Json> Connection::receive(std::optional<std::chrono::milliseconds> patience) {
  Json line = co_await hear(patience);
  throw_refusal(line);
  co_return line;
}

void Connection::close() {
  error_code ignored;
  stream_.socket().close(ignored);
}

Daemon::Daemon(net::io_context& context, std::filesystem::path directory)
    : context_(context), directory_(std::move(directory)) {}

void Hangup::now() {
  is_over_ = true;
  if (const auto end = std::exchange(end_, nullptr)) {
    end();
  }
}

std::unique_ptr<Connection> Daemon::connect() { return std::make_unique<Connection>(context_, connected(directory_)); }

std::shared_ptr<Connection> Daemon::connect(Hangup& hangup) {
  std::shared_ptr<Connection> connection = connect();
  hangup.end_ = [weak = std::weak_ptr(connection)] {
    if (const auto there = weak.lock()) {
      there->close();
    }
  };
  if (hangup.is_over_) {
    throw NoDaemon("nobody waits for it any more");
  }
  return connection;
}

net::awaitable<Json> Daemon::ask(const Json& request, std::chrono::milliseconds patience) {
  Json answer = co_await ask_any(request, patience);
  throw_refusal(answer);
  co_return answer;
}

net::awaitable<Json> Daemon::ask_any(const Json& request, std::chrono::milliseconds patience) {
  const auto place = one_of(asking_, kMostAtOnce);
  const auto connection = connect();
  co_await connection->send(request);
  Json answer = co_await connection->hear(patience);
  co_return answer;
}

net::awaitable<void> Daemon::follow(const Json& request, const std::function<bool(const Json&)>& take, Hangup& hangup) {
  const auto connection = connect(hangup);
  co_await connection->send(request);
  const Json beginning = co_await connection->receive();
  for (bool goes_on = take(beginning); goes_on;) {
    const Json line = co_await connection->receive(Connection::kForEver);
    goes_on = take(line);
  }
}

namespace {

// In pieces, of which an empty one is the last.
net::awaitable<void> send_all(Connection& connection, std::string_view bytes) {
  bool is_taken = true;
  for (std::size_t at = 0; is_taken; at += kPiece) {
    const std::string_view piece = bytes.substr(std::min(at, bytes.size()), kPiece);
    is_taken = co_await connection.send_bytes(piece) && !piece.empty();
  }
}

}  // namespace

net::awaitable<Json> Daemon::talk(const Talk& talk, const Take& take, Hangup& hangup) {
  const auto place = one_of(talking_, kMostTalks);
  const auto connection = connect(hangup);
  const bool is_taken = co_await connection->send(talk.request);
  if (is_taken && talk.bytes.has_value()) {
    co_await send_all(*connection, *talk.bytes);
  }
  for (;;) {
    Json line = co_await connection->receive(talk.patience);
    if (line.contains("ok")) {
      co_return line;
    }
    std::string text = line.value("text", "");
    if (line.contains("bytes")) {
      text = co_await connection->receive_bytes(line.at("bytes").get<std::size_t>());
    }
    const bool goes_on = co_await take(std::move(text));
    if (!goes_on) {
      throw NoDaemon("nobody waits for it any more");
    }
  }
}

}  // namespace gateway
