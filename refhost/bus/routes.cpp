#include "bus/routes.h"

#include <mutex>
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
  const auto found = table_.find(message->type());
  if (found == table_.end() || found->second.empty()) {
    count(running_counters.undelivered);
    return nullptr;
  }
  std::unique_ptr<ac::Message> kept;
  for (Subscriber::Impl* subscriber : found->second) {
    const bool last = subscriber == found->second.back();
    auto own = last ? std::move(message) : ac::Message::Impl::copy(*message);
    if (subscriber == inline_for) {
      kept = std::move(own);
    } else {
      subscriber->inbox.put(std::move(own));
    }
  }
  return kept;
}

}  // namespace refhost
