// One connection to a broker, from its beginning to its end. broker.h makes one after another.
#pragma once

#include <mosquitto.h>

#include <boost/asio/posix/stream_descriptor.hpp>
#include <map>
#include <optional>

#include "gateway/mqtt/broker.h"

namespace mqtt {

// libmosquitto's client without a loop of its own: the context tells when its socket is ready. The context watches a
// copy of the socket's descriptor, as the library closes its own without a word.
class Broker::Link : public std::enable_shared_from_this<Link> {
 public:
  explicit Link(Broker& owner);
  ~Link();
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  void open(const std::string& will_topic, const std::string& will);

  // Says goodbye; the owner hears no more, but that what is in flight is lost.
  void leave();

  // The owner goes, and whoever waits may have gone.
  void forget() { waiting_.clear(); }

  bool is_up() const { return is_up_; }
  std::size_t in_flight() const { return waiting_.size(); }
  bool publish(const Publication& publication, std::function<void(Outcome)> done);
  void subscribe(const std::string& filter, Answered answered, bool keeps_retain_flag);
  void unsubscribe(const std::string& filter);

 private:
  struct Freed {
    void operator()(mosquitto* client) const { mosquitto_destroy(client); }
  };

  void set_callbacks();
  int begin(const std::string& will_topic, const std::string& will);
  void watch_socket();
  void go_on(int result);
  void arm();
  int move();
  void watch_time();
  void lose(int result);
  void end(const Fault& fault);
  Fault fault_of(int result) const;

  void welcomed(int reason);
  void sent_away(int reason);
  void acknowledged(int packet, int reason);
  void subscribed(int packet, bool is_granted);
  void arrived(const mosquitto_message& message, const mosquitto_property* properties);
  void log(int level, const char* text);

  // While the library calls: it must not be told to end then.
  template <typename Call>
  static void in_callback(void* link, const Call& call) {
    auto& self = *static_cast<Link*>(link);
    self.is_called_ = true;
    call(self);
    self.is_called_ = false;
  }
  void say_goodbye();

  Broker* owner_;  // null once it has left
  net::io_context& context_;
  const Place place_;
  const Timing timing_;
  std::optional<Safety> safety_;  // before client_, which uses it until it is destroyed
  std::unique_ptr<mosquitto, Freed> client_;
  net::posix::stream_descriptor socket_;
  net::steady_timer look_;
  std::chrono::steady_clock::time_point opened_;
  std::map<int, std::function<void(Outcome)>> waiting_;  // by packet
  std::map<int, Answered> asked_;                        // by packet
  std::string complaint_;                                // what the library or the broker has said last
  bool is_read_ = false;                                 // something waits until the socket can be read
  bool is_written_ = false;
  bool is_up_ = false;
  bool is_called_ = false;
  bool is_over_ = false;
};

}  // namespace mqtt
