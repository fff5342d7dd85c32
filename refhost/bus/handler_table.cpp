#include "bus/handler_table.h"

#include <exception>
#include <span>
#include <utility>

#include "bus/counters.h"
#include "bus/enqueuer_impl.h"
#include "bus/message_impl.h"
#include "refhost/log.h"

namespace refhost {
namespace {

void report_failure(const std::string& recipient, const std::string& type, const std::string& reason) {
  count(running_counters.failures);
  log::error(recipient + ": handler of \"" + type + "\" failed: " + reason);
}

void call(const std::function<void(ac::Message*)>& handler, ac::Message* message, const std::string& recipient) {
  try {
    handler(message);
  } catch (const std::exception& failure) {
    report_failure(recipient, message->type(), failure.what());
  } catch (...) {
    report_failure(recipient, message->type(), "unknown exception");
  }
}

}  // namespace

void HandlerTable::add(const ac::MessageListener* listeners, std::size_t count) {
  for (const ac::MessageListener& listener : std::span(listeners, count)) {
    handlers_[listener.type].push_back(listener.handler);
  }
}

void HandlerTable::deliver(std::unique_ptr<ac::Message> message, const std::string& recipient) const {
  const auto found = handlers_.find(message->type());
  if (found == handlers_.end()) {
    if (message->type() != kFlushType) {
      count(running_counters.undelivered);
    }
    return;
  }
  for (const Handler& handler : found->second) {
    call(handler, message.get(), recipient);
  }
  count(running_counters.delivered);
  if (auto* queue = std::exchange(ac::Message::Impl::of(*message).next_queue, nullptr); queue != nullptr) {
    ac::MessageEnqueuer::Impl::of(*queue).inbox.put(std::move(message));
  }
}

std::vector<std::string> HandlerTable::types() const {
  std::vector<std::string> result;
  for (const auto& [type, handlers] : handlers_) {
    result.push_back(type);
  }
  return result;
}

}  // namespace refhost
