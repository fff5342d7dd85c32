// The centre's connection to the broker: an ordinary client, which waits for what it wants.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "gateway/fleet/json.h"
#include "gateway/mqtt/broker.h"

namespace fleet {

// Where the broker is, and who asks there.
struct Access {
  std::string broker = "localhost:8883";
  mqtt::Files files;
};

// "localhost:8883" in parts. Throws cli::Failure (kUsage).
mqtt::Place place_of(const Access& access);

// The name in a certificate, as the broker knows its owner; empty where there is none.
std::string name_in_certificate(const std::string& file);

// What a door has answered; nothing where it has not in time.
using Answers = std::map<std::string, std::optional<Json>>;

// One thread uses it. Every wait ends with a cli::Failure when the connection does, unless it is lasting.
class Centre {
 public:
  using Take = std::function<void(const mqtt::Message&)>;

  static constexpr std::chrono::seconds kPatience{10};  // for the broker

  // Throws cli::Failure (kNoAnswer) when the broker cannot be reached, with the reason and the way out.
  explicit Centre(const Access& access);

  // From now on a connection that ends is told on standard error and made again.
  void last();

  // What comes is handed on, while something here waits. Throws when the broker lets this user not listen there.
  void listen(const std::string& filter, Take take);
  void leave(const std::string& filter);

  // Waits while too much is under way. What the broker refuses is thrown by settle().
  void tell(const std::string& topic, std::string payload, bool retain);

  // From within a Take: without waiting. What finds no room is lost; who asked asks again.
  void reply(const std::string& topic, std::string payload);

  // Until all that was told has been taken, and everything that was retained where it listens has come.
  void settle();

  // Until it is so. False when it takes longer.
  bool wait(const std::function<bool()>& condition, std::chrono::milliseconds patience);

  // Until Ctrl-C or SIGTERM.
  void wait_for_end();

  // Asks doors, each once, and waits for their answers.
  Answers ask(const std::set<std::string>& doors, const std::string& name, Json request,
              std::chrono::milliseconds patience);

 private:
  void take(const mqtt::Message& message);
  void take_answer(std::string_view topic, const mqtt::Message& message);
  void go_on();
  void ensure(const std::function<bool()>& condition, const char* what);

  const mqtt::Place place_;
  const std::string by_;   // for whom it asks; empty without a certificate
  const std::string own_;  // where answers to this client go: centre/NAME/CLIENT/
  boost::asio::io_context context_{1};
  boost::asio::steady_timer alarm_{context_};
  std::map<std::string, Take> takers_;        // by filter
  std::map<std::string, std::string> asked_;  // doors, by the correlation of what they have not answered
  Answers answers_;
  std::string fault_;    // why there is no connection
  std::string refused_;  // a topic
  std::size_t marks_told_ = 0;
  std::size_t marks_come_ = 0;
  bool is_lasting_ = false;
  mqtt::Broker broker_;
};

}  // namespace fleet
