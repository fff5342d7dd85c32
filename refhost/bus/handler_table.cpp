#include "bus/handler_table.h"

#include <algorithm>
#include <exception>
#include <new>
#include <span>
#include <utility>

#include "bus/counters.h"
#include "bus/enqueuer_impl.h"
#include "bus/message_impl.h"
#include "refhost/log.h"

namespace refhost {
namespace {

void report_failure(const std::string& recipient, const ac::Message& message, const std::string& reason) {
  count(running_counters.failures);
  try {
    log::error(recipient + ": handler of \"" + message.type() + "\" failed: " + reason);
  } catch (const std::bad_alloc&) {  // the counter tells
  }
  if (Ticket* const ticket = ac::Message::Impl::of(message).ticket(); ticket != nullptr) {
    ticket->failed(reason);
  }
}

void call(const std::function<void(ac::Message*)>& handler, ac::Message* message, const std::string& recipient) {
  try {
    handler(message);
  } catch (const std::exception& failure) {
    report_failure(recipient, *message, failure.what());
  } catch (...) {
    report_failure(recipient, *message, "unknown exception");
  }
}

}  // namespace

void HandlerTable::add(const ac::MessageListener* listeners, std::size_t count) {
  for (const ac::MessageListener& listener : std::span(listeners, count)) {
    MessageType* const type = &MessageType::of(listener.type);
    auto place = std::ranges::find(handlers_, type, &Entry::first);
    if (place == handlers_.end()) {
      place = handlers_.insert(place, {type, {}});
    }
    place->second.push_back(listener.handler);
  }
}

void HandlerTable::deliver(std::unique_ptr<ac::Message> message, const std::string& recipient) const {
  const auto& impl = ac::Message::Impl::of(*message);
  const Ticket::Handling handling(impl.ticket());
  const auto found = std::ranges::find(handlers_, impl.type, &Entry::first);
  if (found == handlers_.end()) {
    count(running_counters.undelivered);
    return;
  }
  for (const Handler& handler : found->second) {
    call(handler, message.get(), recipient);
  }
  count(running_counters.delivered);
  const auto& rare = impl.existing_rare;
  if (auto* queue = rare == nullptr ? nullptr : std::exchange(rare->next_queue, nullptr); queue != nullptr) {
    if (rare->ticket != nullptr) {
      rare->ticket->moves_on();
    }
    ac::MessageEnqueuer::Impl::of(*queue).inbox.put(std::move(message));
  }
}

std::vector<MessageType*> HandlerTable::types() const {
  std::vector<MessageType*> result;
  for (const auto& [type, handlers] : handlers_) {
    result.push_back(type);
  }
  return result;
}

}  // namespace refhost
