#include "gateway/mqtt/broker.h"

#include <algorithm>
#include <utility>

#include "gateway/mqtt/link.h"

namespace mqtt {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

Broker::Broker(net::io_context& context, Place place, Handlers handlers, Timing timing)
    : context_(context),
      place_(std::move(place)),
      handlers_(std::move(handlers)),
      timing_(timing),
      again_(context),
      wait_(timing.least),
      chance_(std::random_device{}()) {}

Broker::~Broker() {
  if (link_ != nullptr) {
    link_->forget();
    link_->leave();
  }
}

void Broker::set_will(std::string topic, std::function<std::string()> payload) {
  will_topic_ = std::move(topic);
  will_ = std::move(payload);
}

void Broker::start() {
  is_wanted_ = true;
  timing_.first.count() == 0 ? connect() : connect_after(some_of(milliseconds(0), timing_.first));
}

void Broker::stop() {
  is_wanted_ = false;
  again_.cancel();
  if (const auto link = std::exchange(link_, nullptr)) {
    link->leave();
  }
}

void Broker::renew() {
  if (!is_wanted_) {
    return;
  }
  stop();
  is_wanted_ = true;
  connect();
}

void Broker::connect() {
  link_ = std::make_shared<Link>(*this);
  link_->open(will_topic_, will_ ? will_() : "");
}

void Broker::came_up() {
  up_since_ = steady_clock::now();
  for (const auto& [filter, subscription] : subscriptions_) {
    link_->subscribe(filter, subscription.answered, subscription.keeps_retain_flag);
  }
  if (handlers_.up) {
    handlers_.up();
  }
}

void Broker::went_down(const Fault& fault) {
  link_ = nullptr;
  connect_after(next_wait());
  if (handlers_.down) {
    handlers_.down(fault);
  }
}

// A thousand that a broker has lost at once do not come back at once.
milliseconds Broker::next_wait() {
  if (up_since_ != steady_clock::time_point() && steady_clock::now() - up_since_ > wait_) {
    wait_ = timing_.least;
  }
  up_since_ = {};
  const milliseconds whole = wait_;
  wait_ = std::min(wait_ * 2, timing_.most);
  return some_of(whole / 2, whole);
}

milliseconds Broker::some_of(milliseconds least, milliseconds most) {
  return milliseconds(std::uniform_int_distribution<milliseconds::rep>(least.count(), most.count())(chance_));
}

void Broker::connect_after(milliseconds wait) {
  again_.expires_after(wait);
  again_.async_wait([this](const boost::system::error_code& ended) {
    if (!ended && is_wanted_ && link_ == nullptr) {
      connect();
    }
  });
}

bool Broker::is_up() const { return link_ != nullptr && link_->is_up(); }

bool Broker::publish(const Publication& publication, std::function<void(Outcome)> done) {
  return link_ != nullptr && link_->publish(publication, std::move(done));
}

std::size_t Broker::in_flight() const { return link_ == nullptr ? 0 : link_->in_flight(); }

void Broker::subscribe(const std::string& filter, Answered answered, bool keeps_retain_flag) {
  const auto& wanted = subscriptions_[filter] = {std::move(answered), keeps_retain_flag};
  if (is_up()) {
    link_->subscribe(filter, wanted.answered, keeps_retain_flag);
  }
}

void Broker::unsubscribe(const std::string& filter) {
  if (subscriptions_.erase(filter) > 0 && is_up()) {
    link_->unsubscribe(filter);
  }
}

}  // namespace mqtt
