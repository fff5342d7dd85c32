// The door daemon, as this program sees it: what can be asked at its control socket.
#pragma once

#include <boost/asio/io_context.hpp>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "gateway/web/http.h"

namespace web {

// Nobody listens there, or he says nothing; what() is for a person.
class NoDaemon : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// It has answered with an error.
class Refused : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// One thread uses it, that of the context. What is given to a coroutine is to outlive it.
class Daemon {
 public:
  // The daemon has few places, and others need them too.
  static constexpr int kMostAtOnce = 4;

  // directory: the daemon's state.
  Daemon(net::io_context& context, std::filesystem::path directory);

  // The answer to a request. Throws NoDaemon or Refused.
  net::awaitable<Json> ask(const Json& request);

  // Hand on each line that comes after a request's answer begins, until that says no, or the daemon ends the
  // connection. Throws NoDaemon or Refused.
  net::awaitable<void> follow(const Json& request, const std::function<bool(const Json&)>& take);

 private:
  class Connection;
  std::unique_ptr<Connection> connect();

  net::io_context& context_;
  const std::filesystem::path directory_;
  const std::shared_ptr<int> asking_ = std::make_shared<int>(0);  // what is under way may outlive this
};

}  // namespace web
