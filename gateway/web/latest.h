// The latest answer to a question that many have.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "gateway/base/daemon.h"
#include "gateway/web/http.h"

namespace web {

// How the daemon stood at a moment.
struct Snapshot {
  std::optional<Json> answer;  // nothing when it did not answer
  std::string error;           // why
  std::chrono::steady_clock::time_point at;
};

// Asks the daemon once for all who want to know, and no more than once a second. One thread uses it, that of the
// context.
class Latest {
 public:
  Latest(net::io_context& context, gateway::Daemon& daemon, std::string command);

  net::awaitable<std::shared_ptr<const Snapshot>> get();

 private:
  gateway::Daemon& daemon_;
  const std::string command_;
  std::shared_ptr<const Snapshot> latest_;
  bool is_asking_ = false;
  net::steady_timer answered_;  // cancelled when the answer is there
};

// Until the timer is cancelled, or its time has come.
net::awaitable<void> wait_for(net::steady_timer& timer);

// A timer that only cancel() ends, for any number who wait: a new time for one of them would wake the others.
inline constexpr auto kNever = std::chrono::steady_clock::time_point::max();

}  // namespace web
