// A connection to an MQTT broker that comes back by itself.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>

#include "gateway/mqtt/safety.h"

namespace mqtt {

namespace net = boost::asio;

// Where a broker is, and who asks there.
struct Place {
  std::string host;
  std::uint16_t port = 8883;
  std::string client;  // its id
  Files files = {};
  std::string user = {};  // empty where the certificate tells who it is
  std::string password = {};
};

// What is to be told. response_topic and correlation: MQTT 5's, of a request or an answer.
struct Publication {
  std::string topic;
  std::string payload;
  bool retain = false;
  std::string response_topic = {};
  std::string correlation = {};
};

// What has come; the views hold while the handler runs.
struct Message {
  std::string_view topic;
  std::string_view payload;
  bool is_retained = false;
  std::string_view response_topic;
  std::string_view correlation;
};

// What has become of a publication.
enum class Outcome {
  taken,    // the broker has it
  refused,  // the broker does not let this client tell that there
  lost,     // the connection ended before: it may have it, or not
};

// Why there is no connection, for a person, and whether the files or the broker's view of them is why.
struct Fault {
  std::string text;
  bool is_of_safety = false;
};

struct Timing {
  std::chrono::milliseconds first{0};                                // at most, before it comes for the first time
  std::chrono::milliseconds least = std::chrono::milliseconds(500);  // before it tries again
  std::chrono::milliseconds most = std::chrono::seconds(60);         // the wait doubles up to there
  std::chrono::milliseconds patience = std::chrono::seconds(10);     // for the broker's welcome
  std::chrono::seconds keep_alive{15};
};

// One thread uses it, that of the context, which may carry a thousand of them. What is not acknowledged when the
// connection ends is told to be lost, and forgotten: whoever wants it told tells it again. All is told with QoS 1.
class Broker {
 public:
  static constexpr std::size_t kMostInFlight = 64;                         // publications not acknowledged yet
  static constexpr std::size_t kLongestPayload = std::size_t{256} * 1024;  // of what is taken; more is dropped

  // Called in the context, and may call all but the destructor. May be empty.
  struct Handlers {
    std::function<void()> up = {};                // the broker has welcomed it
    std::function<void(const Fault&)> down = {};  // it has gone, or could not be reached; it is tried again
    std::function<void(const Message&)> message = {};
  };

  Broker(net::io_context& context, Place place, Handlers handlers, Timing timing = {});
  ~Broker();
  Broker(const Broker&) = delete;
  Broker& operator=(const Broker&) = delete;

  // What the broker tells, retained, when this side goes without a word; asked for at each connection. Before start().
  void set_will(std::string topic, std::function<std::string()> payload);

  void start();

  // Says goodbye, so that the will is not told, after what is in flight has been sent; it comes back no more.
  void stop();

  // Leaves, and comes at once with the files as they are now.
  void renew();

  bool is_up() const;

  // False when there is no connection, or too much is in flight: try again when something has been acknowledged.
  bool publish(const Publication& publication, std::function<void(Outcome)> done = {});
  std::size_t in_flight() const;

  // From now on, and again after each new connection. answered: whether the broker lets this client listen
  // there, told each time.
  using Answered = std::function<void(bool)>;
  void subscribe(const std::string& filter, Answered answered = {}, bool keeps_retain_flag = false);
  void unsubscribe(const std::string& filter);

  const Place& place() const { return place_; }

 private:
  class Link;  // one connection

  struct Subscription {
    Answered answered;
    bool keeps_retain_flag = false;
  };

  void connect();
  void connect_after(std::chrono::milliseconds wait);
  void came_up();
  void went_down(const Fault& fault);
  std::chrono::milliseconds next_wait();
  std::chrono::milliseconds some_of(std::chrono::milliseconds least, std::chrono::milliseconds most);

  net::io_context& context_;
  const Place place_;
  const Handlers handlers_;
  const Timing timing_;
  std::string will_topic_;
  std::function<std::string()> will_;  // empty without one
  std::map<std::string, Subscription> subscriptions_;
  std::shared_ptr<Link> link_;  // shared with what it has under way; null between connections
  net::steady_timer again_;
  std::chrono::milliseconds wait_;
  std::chrono::steady_clock::time_point up_since_;
  std::minstd_rand chance_;
  bool is_wanted_ = false;
};

}  // namespace mqtt
