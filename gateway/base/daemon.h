// The door daemon, as this program sees it: what can be asked at its control socket.
#pragma once

// Boost's coroutines use std::exchange without it.
#include <utility>
// These come behind.
#include <boost/asio/awaitable.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/beast/core/basic_stream.hpp>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "gateway/base/json.h"

namespace gateway {

namespace net = boost::asio;
namespace beast = boost::beast;

// Nobody listens there, or he says nothing; what() is for a person.
class NoDaemon : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// It has answered with an error.
class Refused : public std::runtime_error {
 public:
  Refused(const std::string& what, int status) : std::runtime_error(what), status_(status) {}

  // Of what kind: 2 the request is wrong, 9 it is stored and not in force yet.
  int status() const { return status_; }

 private:
  int status_;
};

// A connection to the daemon. One thread uses it, that of the context; it outlives the coroutines that it has begun.
class Connection {
 public:
  static constexpr std::chrono::seconds kPatience{5};
  static constexpr std::optional<std::chrono::milliseconds> kForEver = std::nullopt;

  Connection(net::io_context& context, int fd);

  // False when the daemon has closed: it says why before, and receive() reads it.
  net::awaitable<bool> send(const Json& request);

  // A piece of the bytes that go with a request; an empty one is their end. False when the daemon does not want them:
  // its answer says why.
  net::awaitable<bool> send_bytes(std::string_view bytes);

  // The bytes that a line has told of. Throws NoDaemon.
  net::awaitable<std::string> receive_bytes(std::size_t size);

  // The next line. Throws NoDaemon.
  net::awaitable<Json> hear(std::optional<std::chrono::milliseconds> patience = kPatience);

  // The same; of an error throws Refused.
  net::awaitable<Json> receive(std::optional<std::chrono::milliseconds> patience = kPatience);

  // What waits for a line gets NoDaemon.
  void close();

 private:
  net::awaitable<bool> write(std::string_view text);

  beast::basic_stream<net::local::stream_protocol> stream_;
  std::string pending_;
};

// Ends a conversation from outside, whatever it waits for; then it throws NoDaemon. One thread uses it.
class Hangup {
 public:
  void now();

 private:
  friend class Daemon;
  std::function<void()> end_;
  bool is_over_ = false;
};

// One thread uses it, that of the context. What is given to a coroutine is to outlive it.
class Daemon {
 public:
  // The daemon has few places, and others need them too.
  static constexpr int kMostAtOnce = 4;

  // Who has lost it asks again after that.
  static constexpr std::chrono::seconds kBeforeAgain{1};

  // What one request has for itself that takes its time: downloads, imports, and who waits for a card.
  static constexpr int kMostTalks = 3;

  // directory: the daemon's state.
  Daemon(net::io_context& context, std::filesystem::path directory);

  // The answer to a request. Throws NoDaemon or Refused.
  net::awaitable<Json> ask(const Json& request, std::chrono::milliseconds patience = Connection::kPatience);

  // The same, an error too, which may be long in coming.
  net::awaitable<Json> ask_any(const Json& request, std::chrono::milliseconds patience);

  // For what is more than a request and an answer. Throws NoDaemon.
  std::unique_ptr<Connection> connect();

  // Hand on each line that comes after a request's answer begins, until that says no, or the daemon ends the
  // connection. Throws NoDaemon or Refused.
  net::awaitable<void> follow(const Json& request, const std::function<bool(const Json&)>& take, Hangup& hangup);

  // A request that takes bytes, or whose answer has texts or bytes before it.
  struct Talk {
    Json request;
    std::optional<std::string_view> bytes = std::nullopt;                         // that go with it
    std::optional<std::chrono::milliseconds> patience = std::chrono::minutes(1);  // for each line of the answer
  };

  // Gets what comes before the answer, and says whether it wants more.
  using Take = std::function<net::awaitable<bool>(std::string)>;

  // The answer. Throws NoDaemon or Refused.
  net::awaitable<Json> talk(const Talk& talk, const Take& take, Hangup& hangup);

 private:
  std::shared_ptr<Connection> connect(Hangup& hangup);

  net::io_context& context_;
  const std::filesystem::path directory_;
  // What is under way may outlive this.
  const std::shared_ptr<int> asking_ = std::make_shared<int>(0);
  const std::shared_ptr<int> talking_ = std::make_shared<int>(0);
};

}  // namespace gateway
