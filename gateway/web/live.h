// What is live: how the door stands, and what happens at it, for all who look on.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "gateway/web/daemon.h"
#include "gateway/web/latest.h"
#include "gateway/web/timeline.h"

namespace web {

// One who looks on. What he has not taken waits, within a bound.
class Onlooker {
 public:
  static constexpr std::size_t kMostWaiting = std::size_t{512} * 1024;  // bytes; who is further behind is dropped

  explicit Onlooker(net::io_context& context);

  // What has come, once something has; empty after a while without anything. Nothing when it is over.
  net::awaitable<std::optional<std::string>> next(std::chrono::milliseconds longest);

  void put(const std::string& text);
  void end();
  bool is_over() const { return is_over_; }

 private:
  net::steady_timer wake_;
  std::string waiting_;
  bool is_over_ = false;
};

// Asks the daemon once for all, and only while somebody looks on. One thread uses it, that of the context.
class Live {
 public:
  static constexpr std::size_t kMostOnlookers = 48;

  Live(net::io_context& context, Daemon& daemon);

  // How the daemon stands.
  net::awaitable<std::shared_ptr<const Snapshot>> status() { return status_.get(); }

  // He gets the entries behind that event first. Null when there are too many.
  std::shared_ptr<Onlooker> look_on(std::string_view last_event);
  void leave(const std::shared_ptr<Onlooker>& onlooker);

  // For ever: what goes to those who look on.
  net::awaitable<void> tell_status();
  net::awaitable<void> tell_entries();

  // As it goes over the line: "status", or "away" without one.
  static std::string event_of(const Snapshot& snapshot);

 private:
  net::awaitable<void> wait_for_onlookers();
  net::awaitable<void> pause();
  void publish(const std::string& text);

  net::io_context& context_;
  Daemon& daemon_;
  Latest status_;
  Timeline timeline_;
  std::set<std::shared_ptr<Onlooker>> onlookers_;
  net::steady_timer somebody_;  // cancelled when somebody comes
};

}  // namespace web
