#include "bus/routes.h"

#include <mutex>
#include <set>
#include <utility>

#include "bus/counters.h"
#include "bus/message_impl.h"
#include "bus/subscriber_impl.h"

namespace refhost {

Routes& Routes::instance() {
  static Routes& routes = *new Routes;
  return routes;
}

void Routes::add(Subscriber::Impl* subscriber) {
  const std::lock_guard lock(mutex_);
  for (const std::string& type : subscriber->handlers.types()) {
    table_[type].push_back(subscriber);
  }
}

void Routes::remove(Subscriber::Impl* subscriber) {
  const std::lock_guard lock(mutex_);
  for (auto& [type, subscribers] : table_) {
    std::erase(subscribers, subscriber);
  }
}

std::unique_ptr<ac::Message> Routes::post(std::unique_ptr<ac::Message> message, const Subscriber::Impl* inline_for) {
  const std::shared_lock lock(mutex_);
  for (const Tap* tap : taps_) {
    (*tap)(*message);
  }
  const auto found = table_.find(message->type());
  if (found == table_.end() || found->second.empty()) {
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
  const auto& interested = found->second;
  for (std::size_t i = 0; i + 1 < interested.size(); ++i) {
    give(interested[i], ac::Message::Impl::copy(*message));
  }
  give(interested.back(), std::move(message));
  return kept;
}

void Routes::post_to_all(const std::function<std::unique_ptr<ac::Message>()>& make) {
  const std::shared_lock lock(mutex_);
  std::set<Subscriber::Impl*> subscribers;
  for (const auto& [type, interested] : table_) {
    subscribers.insert(interested.begin(), interested.end());
  }
  for (Subscriber::Impl* const subscriber : subscribers) {
    subscriber->inbox.put(make());
  }
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
