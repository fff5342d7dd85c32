// Answers what is asked over the broker.
#pragma once

#include <boost/asio/io_context.hpp>
#include <functional>
#include <memory>
#include <string>

#include "gateway/base/daemon.h"
#include "gateway/base/rate_limit.h"
#include "gateway/mqtt/asked.h"
#include "gateway/mqtt/broker.h"

namespace mqtt {

// One thread uses it, that of the context.
class Commands {
 public:
  static constexpr double kAtOnce = 20;
  static constexpr double kPerSecond = 5;
  static constexpr std::size_t kLongestRecording = std::size_t{1} << 20;  // bytes, as it goes over the broker
  static constexpr std::size_t kMostDifferences = 500;  // that go over the broker; "more" says that there are others

  // replay: tell the journal again from behind a number on.
  Commands(net::io_context& context, gateway::Daemon& daemon, Broker& broker, std::string door,
           std::function<void(std::int64_t)> replay)
      : context_(context),
        daemon_(daemon),
        broker_(broker),
        door_(std::move(door)),
        replay_(std::move(replay)),
        limit_(kAtOnce, kPerSecond) {}

  // name: of its topic.
  void take(std::string_view name, const Message& message);

 private:
  // Where an answer goes, and what it is known by.
  struct Reply {
    std::string topic;
    std::string correlation;  // MQTT 5's
    Json in_payload;          // else
  };

  net::awaitable<void> run(std::shared_ptr<const Asked> asked, std::shared_ptr<const Reply> reply);
  net::awaitable<Json> recording(const Json& request);
  net::awaitable<Json> drift(const Json& request);
  void answer(const Reply& reply, Json json);

  net::io_context& context_;
  gateway::Daemon& daemon_;
  Broker& broker_;
  const std::string door_;
  const std::function<void(std::int64_t)> replay_;
  gateway::RateLimit limit_;
};

}  // namespace mqtt
