#include "gateway/mqtt/link.h"

#include <fcntl.h>
#include <mqtt_protocol.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <boost/asio/post.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

namespace mqtt {
namespace {

using boost::system::error_code;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr int kQos = 1;
constexpr milliseconds kGoodbye{200};  // a broker closes at once
constexpr int kFirstFailure = 128;     // MQTT 5: reasons from there on are failures

void start_library() { [[maybe_unused]] static const int started = mosquitto_lib_init(); }

struct FreedProperties {
  void operator()(mosquitto_property* list) const { mosquitto_property_free_all(&list); }
};
using Properties = std::unique_ptr<mosquitto_property, FreedProperties>;

Properties properties_of(const Publication& publication) {
  mosquitto_property* list = nullptr;
  if (!publication.response_topic.empty()) {
    mosquitto_property_add_string(&list, MQTT_PROP_RESPONSE_TOPIC, publication.response_topic.c_str());
  }
  if (!publication.correlation.empty()) {
    mosquitto_property_add_binary(&list, MQTT_PROP_CORRELATION_DATA, publication.correlation.data(),
                                  static_cast<std::uint16_t>(publication.correlation.size()));
  }
  return Properties(list);
}

// Reads what comes until the other side closes, for that long at most. A socket that is closed with something unread
// resets the connection, and what was written to it last may never be read.
void read_to_the_end(int socket, milliseconds patience) {
  const auto end = steady_clock::now() + patience;
  char bytes[4096];
  pollfd next{socket, POLLIN, 0};
  for (auto left = patience; left.count() > 0;
       left = std::chrono::duration_cast<milliseconds>(end - steady_clock::now())) {
    if (poll(&next, 1, static_cast<int>(left.count())) <= 0 || recv(socket, bytes, sizeof bytes, MSG_DONTWAIT) <= 0) {
      return;
    }
  }
}

std::string taken(void* text, std::size_t size) {
  const std::unique_ptr<void, decltype(&std::free)> owner(text, &std::free);
  return text == nullptr ? std::string() : std::string(static_cast<const char*>(text), size);
}

std::string response_topic_of(const mosquitto_property* properties) {
  char* text = nullptr;
  mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &text, false);
  return taken(text, text == nullptr ? 0 : std::strlen(text));
}

std::string correlation_of(const mosquitto_property* properties) {
  void* bytes = nullptr;
  std::uint16_t size = 0;
  mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &bytes, &size, false);
  return taken(bytes, size);
}

}  // namespace

Broker::Link::Link(Broker& owner)
    : owner_(&owner),
      context_(owner.context_),
      place_(owner.place_),
      timing_(owner.timing_),
      socket_(context_),
      look_(context_),
      opened_(steady_clock::now()) {
  start_library();
}

Broker::Link::~Link() = default;

// The library is C: nothing may be thrown through it.
void Broker::Link::set_callbacks() {
  using Mosquitto = mosquitto;
  using List = const mosquitto_property*;
  Mosquitto* const client = client_.get();
  mosquitto_connect_v5_callback_set(client, [](Mosquitto*, void* link, int reason, int, List) noexcept {
    in_callback(link, [&](Link& self) { self.welcomed(reason); });
  });
  mosquitto_disconnect_v5_callback_set(client, [](Mosquitto*, void* link, int reason, List) noexcept {
    in_callback(link, [&](Link& self) { self.sent_away(reason); });
  });
  mosquitto_publish_v5_callback_set(client, [](Mosquitto*, void* link, int packet, int reason, List) noexcept {
    in_callback(link, [&](Link& self) { self.acknowledged(packet, reason); });
  });
  mosquitto_subscribe_v5_callback_set(
      client, [](Mosquitto*, void* link, int packet, int count, const int* granted, List) noexcept {
        in_callback(link, [&](Link& self) { self.subscribed(packet, count > 0 && granted[0] < kFirstFailure); });
      });
  mosquitto_message_v5_callback_set(
      client, [](Mosquitto*, void* link, const mosquitto_message* message, List properties) noexcept {
        in_callback(link, [&](Link& self) { self.arrived(*message, properties); });
      });
  mosquitto_log_callback_set(client, [](Mosquitto*, void* link, int level, const char* text) noexcept {
    static_cast<Link*>(link)->log(level, text);
  });
}

int Broker::Link::begin(const std::string& will_topic, const std::string& will) {
  if (!place_.files.ca.empty()) {
    safety_.emplace(place_.files, place_.host);
  }
  client_.reset(mosquitto_new(place_.client.c_str(), true, this));
  if (client_ == nullptr) {
    return errno == EINVAL ? MOSQ_ERR_INVAL : MOSQ_ERR_NOMEM;
  }
  set_callbacks();
  mosquitto_int_option(client_.get(), MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
  mosquitto_int_option(client_.get(), MOSQ_OPT_TCP_NODELAY, 1);
  if (safety_.has_value()) {
    mosquitto_int_option(client_.get(), MOSQ_OPT_SSL_CTX_WITH_DEFAULTS, 0);
    mosquitto_void_option(client_.get(), MOSQ_OPT_SSL_CTX, safety_->context());
  }
  if (!place_.user.empty()) {
    mosquitto_username_pw_set(client_.get(), place_.user.c_str(), place_.password.c_str());
  }
  if (!will_topic.empty()) {
    mosquitto_will_set(client_.get(), will_topic.c_str(), static_cast<int>(will.size()), will.data(), kQos, true);
  }
  return mosquitto_connect_async(client_.get(), place_.host.c_str(), place_.port,
                                 static_cast<int>(timing_.keep_alive.count()));
}

void Broker::Link::open(const std::string& will_topic, const std::string& will) {
  try {
    const int result = begin(will_topic, will);
    if (result == MOSQ_ERR_SUCCESS && mosquitto_socket(client_.get()) >= 0) {
      watch_socket();
      watch_time();
      return;
    }
    net::post(context_, [self = shared_from_this(), fault = fault_of(result)] { self->end(fault); });
  } catch (const BadFiles& failure) {
    net::post(context_, [self = shared_from_this(), fault = Fault{failure.what(), true}] { self->end(fault); });
  }
}

void Broker::Link::watch_socket() {
  const int own = fcntl(mosquitto_socket(client_.get()), F_DUPFD_CLOEXEC, 0);
  if (own < 0) {
    net::post(context_, [self = shared_from_this(), fault = fault_of(MOSQ_ERR_ERRNO)] { self->end(fault); });
    return;
  }
  socket_.assign(own);
  arm();
}

void Broker::Link::arm() {
  if (is_over_) {
    return;
  }
  const auto when_ready = [this](net::posix::stream_descriptor::wait_type way, bool& is_waiting) {
    if (!std::exchange(is_waiting, true)) {
      socket_.async_wait(way, [self = shared_from_this(), &is_waiting](const error_code&) {
        is_waiting = false;
        self->go_on(self->is_over_ ? MOSQ_ERR_SUCCESS : self->move());
      });
    }
  };
  when_ready(socket_.wait_read, is_read_);
  if (mosquitto_want_write(client_.get())) {
    when_ready(socket_.wait_write, is_written_);
  }
}

int Broker::Link::move() {
  const int result = mosquitto_loop_read(client_.get(), 1);
  const bool goes_on = result == MOSQ_ERR_SUCCESS && mosquitto_socket(client_.get()) >= 0;
  return goes_on && mosquitto_want_write(client_.get()) ? mosquitto_loop_write(client_.get(), 1) : result;
}

void Broker::Link::go_on(int result) {
  if (is_over_) {
    return;
  }
  if (result != MOSQ_ERR_SUCCESS || mosquitto_socket(client_.get()) < 0) {
    lose(result);
  } else {
    arm();
  }
}

// Signs of life, and whether the broker gives some.
void Broker::Link::watch_time() {
  look_.expires_after(timing_.keep_alive / 8.0 < std::chrono::seconds(1)
                          ? std::chrono::milliseconds(250)
                          : std::chrono::milliseconds(timing_.keep_alive) / 8);
  look_.async_wait([self = shared_from_this()](const error_code& ended) {
    if (ended || self->is_over_) {
      return;
    }
    if (!self->is_up_ && steady_clock::now() - self->opened_ > self->timing_.patience) {
      self->complaint_ = "it does not answer";
      self->lose(MOSQ_ERR_TIMEOUT);
      return;
    }
    self->go_on(mosquitto_loop_misc(self->client_.get()));
    if (!self->is_over_) {
      self->watch_time();
    }
  });
}

Fault Broker::Link::fault_of(int result) const {
  const std::string where = "broker " + place_.host + ":" + std::to_string(place_.port) + ": ";
  if (safety_.has_value() && !safety_->refusal().empty()) {
    return {where + safety_->refusal(), true};
  }
  if (safety_.has_value() && safety_->may_be_refused() && !is_up_ && complaint_.empty()) {
    return {where + "it has ended the connection upon the certificate " + place_.files.certificate +
                ": does it know whose it is?",
            true};
  }
  if (!complaint_.empty()) {
    return {where + complaint_, false};
  }
  if (result == MOSQ_ERR_EAI) {
    return {where + "this name leads nowhere", false};
  }
  if (result == MOSQ_ERR_ERRNO) {
    return {where + std::strerror(errno), false};
  }
  return {where + (is_up_ || result == MOSQ_ERR_SUCCESS ? "the connection has ended" : mosquitto_strerror(result)),
          false};
}

void Broker::Link::lose(int result) { end(fault_of(result)); }

void Broker::Link::end(const Fault& fault) {
  if (std::exchange(is_over_, true)) {
    return;
  }
  is_up_ = false;
  error_code ignored;
  look_.cancel();
  socket_.close(ignored);
  for (auto& [packet, done] : std::exchange(waiting_, {})) {
    done(Outcome::lost);
  }
  asked_.clear();
  if (Broker* const owner = std::exchange(owner_, nullptr)) {
    owner->went_down(fault);
  }
}

void Broker::Link::leave() {
  owner_ = nullptr;
  if (is_called_) {
    net::post(context_, [self = shared_from_this()] { self->say_goodbye(); });
  } else {
    say_goodbye();
  }
}

void Broker::Link::say_goodbye() {
  if (!is_over_ && client_ != nullptr) {
    mosquitto_disconnect(client_.get());
    if (socket_.is_open()) {
      read_to_the_end(socket_.native_handle(), kGoodbye);  // the library has closed its own
    }
  }
  end({});
}

bool Broker::Link::publish(const Publication& publication, std::function<void(Outcome)> done) {
  if (!is_up_ || waiting_.size() >= kMostInFlight) {
    return false;
  }
  const auto properties = properties_of(publication);
  int packet = 0;
  const int result = mosquitto_publish_v5(client_.get(), &packet, publication.topic.c_str(),
                                          static_cast<int>(publication.payload.size()), publication.payload.data(),
                                          kQos, publication.retain, properties.get());
  if (result == MOSQ_ERR_SUCCESS) {
    waiting_[packet] = done ? std::move(done) : [](Outcome) {};
    arm();
  }
  return result == MOSQ_ERR_SUCCESS;
}

void Broker::Link::subscribe(const std::string& filter, Answered answered, bool keeps_retain_flag) {
  int packet = 0;
  const int options = keeps_retain_flag ? MQTT_SUB_OPT_RETAIN_AS_PUBLISHED : 0;
  if (mosquitto_subscribe_v5(client_.get(), &packet, filter.c_str(), kQos, options, nullptr) == MOSQ_ERR_SUCCESS) {
    asked_[packet] = std::move(answered);
    arm();
  }
}

void Broker::Link::unsubscribe(const std::string& filter) {
  mosquitto_unsubscribe(client_.get(), nullptr, filter.c_str());
  arm();
}

void Broker::Link::welcomed(int reason) {
  if (reason != 0) {
    complaint_ = std::string("it lets nobody in with that: ") + mosquitto_reason_string(reason);
    return;
  }
  is_up_ = true;
  complaint_.clear();
  if (owner_ != nullptr) {
    owner_->came_up();
  }
}

void Broker::Link::sent_away(int reason) {
  if (reason >= kFirstFailure) {
    complaint_ = std::string("it has ended the connection: ") + mosquitto_reason_string(reason);
  }
}

void Broker::Link::acknowledged(int packet, int reason) {
  if (auto found = waiting_.extract(packet); !found.empty()) {
    found.mapped()(reason < kFirstFailure ? Outcome::taken : Outcome::refused);
  }
}

void Broker::Link::subscribed(int packet, bool is_granted) {
  if (auto found = asked_.extract(packet); !found.empty() && found.mapped()) {
    found.mapped()(is_granted);
  }
}

void Broker::Link::arrived(const mosquitto_message& message, const mosquitto_property* properties) {
  const auto size = static_cast<std::size_t>(message.payloadlen);
  if (owner_ == nullptr || !owner_->handlers_.message || size > kLongestPayload) {
    return;
  }
  const std::string response_topic = response_topic_of(properties);
  const std::string correlation = correlation_of(properties);
  owner_->handlers_.message({.topic = message.topic,
                             .payload = {static_cast<const char*>(message.payload), size},
                             .is_retained = message.retain,
                             .response_topic = response_topic,
                             .correlation = correlation});
}

// "OpenSSL Error[0]: error:0A000415:SSL routines::sslv3 alert certificate expired".
void Broker::Link::log(int level, const char* text) {
  if (level == MOSQ_LOG_ERR) {
    const std::string_view whole = text;
    complaint_ = whole.substr(whole.rfind(':') == std::string_view::npos ? 0 : whole.rfind(':') + 1);
  }
}

}  // namespace mqtt
