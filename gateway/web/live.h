// What is live: how the door stands, and what happens at it, for all who look on.
#pragma once

#include <boost/asio/io_context.hpp>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "gateway/base/daemon.h"
#include "gateway/web/latest.h"
#include "gateway/web/onlookers.h"
#include "gateway/web/timeline.h"

namespace web {

// Asks the daemon once for all, and only while somebody looks on. One thread uses it, that of the context.
class Live : public Show {
 public:
  static constexpr std::size_t kMostOnlookers = 48;

  Live(net::io_context& context, gateway::Daemon& daemon);

  // How the daemon stands.
  net::awaitable<std::shared_ptr<const Snapshot>> status() { return status_.get(); }

  std::shared_ptr<Onlooker> look_on(std::string_view last_event) override;
  void leave(const std::shared_ptr<Onlooker>& onlooker) override { onlookers_.leave(onlooker); }
  net::awaitable<std::string> beginning() override;

  // For ever: what goes to those who look on.
  net::awaitable<void> tell_status();
  net::awaitable<void> tell_entries();

  // As it goes over the line: "status", or "away" without one.
  static std::string event_of(const Snapshot& snapshot);

 private:
  net::awaitable<void> pause();

  net::io_context& context_;
  gateway::Daemon& daemon_;
  Latest status_;
  Timeline timeline_;
  Onlookers onlookers_;
};

}  // namespace web
