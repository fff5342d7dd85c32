// What lies before the door's reader, for all who stand there.
#pragma once

#include <boost/asio/io_context.hpp>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "gateway/base/daemon.h"
#include "gateway/web/onlookers.h"

namespace web {

// Follows the daemon's "watch_field" once for all, and only while somebody looks on. Events: "field", and "away" with
// the error while it cannot be told. One thread uses it, that of the context.
class Field : public Show {
 public:
  static constexpr std::size_t kMostOnlookers = 48;

  Field(net::io_context& context, gateway::Daemon& daemon);

  std::shared_ptr<Onlooker> look_on(std::string_view last_event) override;
  void leave(const std::shared_ptr<Onlooker>& onlooker) override;
  net::awaitable<std::string> beginning() override;

  // For ever.
  net::awaitable<void> tell();

 private:
  void say(const std::string& event, const Json& data);

  net::io_context& context_;
  gateway::Daemon& daemon_;
  Onlookers onlookers_;
  std::string latest_;  // of the events; empty while nobody has looked on
  gateway::Hangup hangup_;
};

}  // namespace web
