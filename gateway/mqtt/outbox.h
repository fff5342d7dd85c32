// The journal on its way to the broker.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "gateway/base/daemon.h"
#include "gateway/mqtt/broker.h"
#include "gateway/mqtt/position.h"

namespace mqtt {

using gateway::Json;

// Everything behind the number that the broker has acknowledged goes to journal/KIND, in order, a gap to journal/gap.
// While older entries are still on their way, what happens goes to live/KIND at once too: as a double, ahead of its
// turn. One thread uses it, that of the context.
class Outbox {
 public:
  // Under way at once. The broker takes 20 unless told otherwise, and others have something to tell too.
  static constexpr std::size_t kWindow = 16;
  // Numbers still to come from which on what happens is told ahead.
  static constexpr std::int64_t kFarBehind = 100;

  struct Needs {
    net::io_context& context;
    gateway::Daemon& daemon;
    Broker& broker;
    std::string door;
    std::filesystem::path file;                   // of the position
    std::function<void()> began;                  // the journal is followed, from a daemon that is there anew perhaps
    std::function<void(const Json&)> seen;        // an entry that has just happened
    std::function<void(const std::string&)> say;  // a line for a person
  };

  // Throws std::runtime_error.
  explicit Outbox(Needs needs);

  // For ever.
  net::awaitable<void> run();

  void broker_is_up() { wake_.cancel(); }
  void broker_is_down();

  // Everything behind that number again, of the journal that it is at: somebody has missed some.
  void go_back(std::int64_t after);

  // How many numbers are still to come; 0 when it is live.
  std::int64_t behind() const { return behind_; }

  // How far it is, for the next start; at once without a time.
  void keep(std::optional<PositionFile::Time> now);

 private:
  void begin_anew();
  net::awaitable<void> follow();
  net::awaitable<void> take(const Json& line);
  net::awaitable<void> tell(const std::string& kind, const Json& content, const Position& position);
  net::awaitable<void> look_ahead();
  net::awaitable<void> tell_live(const std::string journal);
  void done(Acknowledgements::Handle handle, Outcome outcome);
  net::awaitable<void> wait_for_change();

  const Needs needs_;
  PositionFile file_;
  Acknowledgements acknowledged_;
  std::string journal_;                              // the one that is followed
  std::unique_ptr<gateway::Connection> connection_;  // null when nothing is followed
  std::unique_ptr<gateway::Connection> ahead_;       // the second one; null when the first is live
  net::steady_timer wake_;                           // cancelled when something has changed
  std::optional<std::int64_t> back_to_;              // whoever follows next begins behind that number at the latest
  bool is_over_ = false;                             // what is followed is to begin anew
  std::int64_t behind_ = 0;
  bool ahead_running_ = false;  // whoever tells what happens has not ended yet
};

// What is told of an entry or a gap: which door and which journal it is of, and it.
std::string payload_of(const std::string& door, const std::string& journal, const Json& content);

// A time that only cancel() ends.
inline constexpr auto kNever = std::chrono::steady_clock::time_point::max();

// Until the timer is cancelled, or its time has come.
net::awaitable<void> wait_for(net::steady_timer& timer);
net::awaitable<void> pause(net::io_context& context, std::chrono::milliseconds length);

}  // namespace mqtt
