// What passes at the door: messages on its bus, and what goes over the reader's line.
#pragma once

#include <boost/asio/io_context.hpp>
#include <memory>
#include <string>

#include "gateway/base/daemon.h"
#include "gateway/web/onlookers.h"

namespace web {

// Asks the daemon once for all, and only while somebody looks on: events "message" and "frame" as they pass; "apart"
// when one of the two cannot be had, and "together" when it can. One thread uses it, that of the context.
class Traffic : public Show {
 public:
  static constexpr std::size_t kMostOnlookers = 16;

  Traffic(net::io_context& context, gateway::Daemon& daemon);

  std::shared_ptr<Onlooker> look_on(std::string_view last_event) override;
  void leave(const std::shared_ptr<Onlooker>& onlooker) override;
  net::awaitable<std::string> beginning() override;

  // For ever: what goes to those who look on.
  net::awaitable<void> tell_messages() { return tell(messages_); }
  net::awaitable<void> tell_frames() { return tell(frames_); }

 private:
  struct Tap {
    const char* command;
    const char* event;
    gateway::Hangup hangup = {};
  };

  net::awaitable<void> tell(Tap& tap);
  net::awaitable<void> follow(Tap& tap);

  net::io_context& context_;
  gateway::Daemon& daemon_;
  Onlookers onlookers_;
  Tap messages_{"events", "message"};
  Tap frames_{"look_on", "frame"};
};

}  // namespace web
