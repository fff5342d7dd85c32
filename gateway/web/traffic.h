// What passes at the door: messages on its bus, and what goes over the reader's line.
#pragma once

#include <boost/asio/io_context.hpp>
#include <functional>
#include <memory>
#include <string>

#include "gateway/base/daemon.h"
#include "gateway/web/message_followers.h"
#include "gateway/web/onlookers.h"

namespace web {

// Asks the daemon once for all, and only while somebody looks on: the messages, of which who comes back gets those that
// he has missed, and events "frame" as they pass; "apart" when one of the two cannot be had, and "together" when it
// can. One thread uses it, that of the context.
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
    const char* event;
    std::function<Json()> request;
    std::function<bool(const Json&)> take;  // false: the daemon is to be asked anew
    bool is_asked_anew = false;
    gateway::Hangup hangup = {};
  };

  net::awaitable<void> tell(Tap& tap);
  net::awaitable<void> follow(Tap& tap);
  bool take_frame(const Json& line);

  net::io_context& context_;
  gateway::Daemon& daemon_;
  Onlookers onlookers_;
  MessageFollowers followers_;
  Tap messages_{"message", [this] { return followers_.request(); },
                [this](const Json& line) { return followers_.take(line); }};
  Tap frames_{"frame",
              [] {
                return Json{{"command", "look_on"}};
              },
              [this](const Json& line) { return take_frame(line); }};
};

}  // namespace web
