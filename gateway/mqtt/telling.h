// How the door stands, for all who want to know.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <map>
#include <string>

#include "gateway/base/daemon.h"
#include "gateway/mqtt/broker.h"

namespace mqtt {

using gateway::Json;

// What a door's state says, made of the answer to "status". Without an answer the door is not online; why, says error.
Json state_of(const Json& status, std::int64_t since, const std::string& boot, std::int64_t behind);
Json state_without(const std::string& error);

// That of a bridge that goes, or has gone without a word. at: when it was there at least, ms since 1970 UTC.
std::string state_gone(std::int64_t at);

// What changes in it without anything having happened is left out of the comparison.
Json health_of(const Json& status);

// Tells state and health when they have changed, and figures each minute; all of them anew after each connection. Each
// says when it was told: what is retained is all that is known of a door that has gone. One thread uses it, that of the
// context.
class Telling {
 public:
  Telling(net::io_context& context, gateway::Daemon& daemon, Broker& broker, std::string door,
          std::function<std::int64_t()> behind);

  // For ever.
  net::awaitable<void> run();

  void broker_is_up();

  // The daemon is there anew, perhaps with what a backup had.
  void daemon_is_up();

  // Something has happened at the door, in that run of its machine.
  void look_again(const std::string& boot);

 private:
  net::awaitable<void> look();
  net::awaitable<void> look_at_figures();
  void tell(const std::string& topic, Json what, const Json& compared);

  gateway::Daemon& daemon_;
  Broker& broker_;
  const std::string door_;
  const std::function<std::int64_t()> behind_;
  std::map<std::string, std::string> told_;  // by topic; what stands at the broker
  std::chrono::steady_clock::time_point figures_told_{};
  std::int64_t since_ = 0;
  std::string boot_;
  net::steady_timer next_;
};

}  // namespace mqtt
