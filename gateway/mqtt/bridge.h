// One run of achost-mqtt: the door on one side, the broker on the other.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <string>

#include "gateway/mqtt/commands.h"
#include "gateway/mqtt/desired.h"
#include "gateway/mqtt/options.h"
#include "gateway/mqtt/outbox.h"
#include "gateway/mqtt/telling.h"

namespace mqtt {

// The doors whose power has come back together do not come to the broker together: whoever starts with his machine
// waits some of ten seconds. Who is started later waits for nobody.
Timing timing_after(std::chrono::seconds uptime);

// One thread uses it, that of the context.
class Bridge {
 public:
  // Throws cli::Failure or std::runtime_error.
  Bridge(net::io_context& context, const Options& options, const Timing& timing = {});

  void start();

  // Says goodbye; nothing that is under way is lost by it.
  void stop();

  // Comes anew, with the certificate as it is now.
  void renew() { broker_.renew(); }

 private:
  void came_up();
  void daemon_is_up();
  void went_down(const Fault& fault);
  void take(const Message& message);
  net::awaitable<void> look_after_files();
  net::awaitable<void> set_alarm(const std::string text);
  void alarm(const std::string& text);

  net::io_context& context_;
  const std::string door_;
  const bool discovery_;
  gateway::Daemon daemon_;
  Broker broker_;
  Outbox outbox_;
  Telling telling_;
  Commands commands_;
  Desired desired_;
  std::string said_;   // what stands on standard error of the broker
  std::string alarm_;  // what the door's alarm is to say; empty: none
  bool is_safety_doubted_ = false;
};

// Until SIGINT or SIGTERM. Throws as above.
void run(const Options& options);

}  // namespace mqtt
