#include "bus/routes.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "bus/counters.h"
#include "bus/message_impl.h"
#include "bus/subscriber_impl.h"

namespace refhost {
namespace {

// With the lock of the routes held.
void give_followed(const ac::Message& message, const std::shared_ptr<Delivery::Impl>& delivery,
                   const std::function<bool(const Subscriber::Impl&)>& is_wanted) {
  const MessageType* const type = MessageType::find(message.type());
  if (type == nullptr || type->subscribers.empty()) {
    count(running_counters.undelivered);
    return;
  }
  for (Subscriber::Impl* const subscriber : type->subscribers) {
    if (is_wanted(*subscriber)) {
      auto own = ac::Message::Impl::copy(message);
      ac::Message::Impl::of(*own).rare().ticket = std::make_unique<Ticket>(delivery, subscriber->inbox.name());
      subscriber->inbox.put(std::move(own));
    }
  }
}

}  // namespace

Routes& Routes::instance() {
  static Routes& routes = *new Routes;
  return routes;
}

void Routes::add(Subscriber::Impl* subscriber) {
  const std::lock_guard lock(mutex_);
  for (MessageType* const type : subscriber->handlers.types()) {
    type->subscribers.push_back(subscriber);
  }
}

void Routes::remove(Subscriber::Impl* subscriber) {
  const std::lock_guard lock(mutex_);
  for (MessageType* const type : subscriber->handlers.types()) {
    std::erase(type->subscribers, subscriber);
  }
}

std::unique_ptr<ac::Message> Routes::post(std::unique_ptr<ac::Message> message, const Subscriber::Impl* inline_for) {
  const std::shared_lock lock(mutex_);
  for (const Tap* tap : taps_) {
    (*tap)(*message);
  }
  MessageType*& type_of_message = ac::Message::Impl::of(*message).type;
  if (type_of_message == nullptr) {
    type_of_message = MessageType::find(message->type());  // somebody may listen by now
  }
  const MessageType* const type = type_of_message;
  if (type == nullptr || type->subscribers.empty()) {
    count(running_counters.undelivered);
    return nullptr;
  }
  std::unique_ptr<ac::Message> kept;
  const auto give = [&](Subscriber::Impl* subscriber, std::unique_ptr<ac::Message> own) {
    if (subscriber == inline_for) {
      kept = std::move(own);
    } else {
      subscriber->inbox.put(std::move(own));
    }
  };
  const auto& interested = type->subscribers;
  for (std::size_t i = 0; i + 1 < interested.size(); ++i) {
    give(interested[i], ac::Message::Impl::copy(*message));
  }
  give(interested.back(), std::move(message));
  return kept;
}

void Routes::post_followed(const ac::Message& message, const std::shared_ptr<Delivery::Impl>& delivery,
                           const std::vector<std::string>& except) {
  const std::shared_lock lock(mutex_);
  for (const Tap* tap : taps_) {
    (*tap)(message);
  }
  give_followed(message, delivery, [&except](const Subscriber::Impl& one) {
    return std::ranges::find(except, one.inbox.name()) == except.end();
  });
}

void Routes::post_followed_to(const std::string& recipient, const ac::Message& message,
                              const std::shared_ptr<Delivery::Impl>& delivery) {
  const std::shared_lock lock(mutex_);
  give_followed(message, delivery, [&](const Subscriber::Impl& one) { return one.inbox.name() == recipient; });
}

void Routes::add_tap(const Tap* tap) {
  const std::lock_guard lock(mutex_);
  taps_.push_back(tap);
}

void Routes::remove_tap(const Tap* tap) {
  const std::lock_guard lock(mutex_);
  std::erase(taps_, tap);
}

}  // namespace refhost
