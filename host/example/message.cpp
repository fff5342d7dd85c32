#include "message.h"

#include <exception>

using example::called;
using example::Fields;

namespace {

template <class T>
bool find(const Fields& fields, const std::string& name, T* value) {
  for (const auto& [field, content] : fields) {
    if (const auto* found = std::get_if<T>(&content); field == name && found != nullptr) {
      *value = *found;
      return true;
    }
  }
  return false;
}

std::string listed(const ac::MessageListener& listener) { return listener.type + (listener.flag ? " true" : " false"); }

}  // namespace

namespace ac {

MessageReply::MessageReply() : impl_(std::make_unique<Impl>()) {}
MessageReply::~MessageReply() = default;
bool MessageReply::replied() const { return impl_->answer.has_value(); }
bool MessageReply::get_int(std::string name, int* value) const {
  return replied() && find(*impl_->answer, name, value);
}
bool MessageReply::get_int64(std::string name, std::int64_t* value) const {
  return replied() && find(*impl_->answer, name, value);
}
bool MessageReply::get_string(std::string name, std::string* value) const {
  return replied() && find(*impl_->answer, name, value);
}

Message::Message(const std::string& type, int argument, ReplyCallback callback) : impl_(std::make_unique<Impl>()) {
  impl_->type = type;
  impl_->argument = argument;
  impl_->callback = std::move(callback);
}
Message::~Message() = default;
void Message::add_int(const std::string& name, int value) { impl_->fields.emplace_back(name, value); }
void Message::add_int64(const std::string& name, std::int64_t value) { impl_->fields.emplace_back(name, value); }
void Message::add_string(const std::string& name, const std::string& value) { impl_->fields.emplace_back(name, value); }
bool Message::get_int(std::string name, int* value) const { return find(impl_->fields, name, value); }
bool Message::get_int64(std::string name, std::int64_t* value) const { return find(impl_->fields, name, value); }
bool Message::get_string(std::string name, std::string* value) const { return find(impl_->fields, name, value); }
const std::string& Message::type() const { return impl_->type; }
void Message::set_reply(MessageReply* reply) { impl_->reply = reply; }
void Message::set_handled() {
  called("set_handled " + type());
  impl_->handled = true;
}
void Message::transfer(MessageEnqueuer* queue) {
  called("transfer " + type());
  impl_->next_queue = queue;
}

void MessageEnqueuer::Impl::put(std::unique_ptr<Message> message) {
  const std::lock_guard lock(mutex);
  waiting.push_back(std::move(message));
  filled.notify_one();
}

std::unique_ptr<Message> MessageEnqueuer::Impl::take(std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex);
  if (!filled.wait_for(lock, timeout, [this] { return !waiting.empty(); })) {
    return nullptr;
  }
  auto message = std::move(waiting.front());
  waiting.pop_front();
  return message;
}

MessageEnqueuer::MessageEnqueuer() : impl_(std::make_unique<Impl>()) {}
MessageEnqueuer::~MessageEnqueuer() = default;
void MessageEnqueuer::listen(const MessageListener* listeners, std::size_t count) {
  impl_->listeners.assign(listeners, listeners + count);
  for (const auto& listener : impl_->listeners) {
    called("listen " + listed(listener));
  }
}

void MessageEnqueuer::process(int timeout_ms, const std::function<void()>& on_timeout) {
  called("process " + std::to_string(timeout_ms));
  const std::chrono::milliseconds timeout(timeout_ms);
  auto due = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - std::chrono::steady_clock::now());
    auto message = impl_->take(std::max(left, std::chrono::milliseconds(0)));
    // A queue that is never empty must not keep the plug-in from saying that it is alive.
    if (std::chrono::steady_clock::now() >= due) {
      on_timeout();
      due = std::chrono::steady_clock::now() + timeout;
    }
    if (message != nullptr) {
      const std::string type = message->type();
      try {
        example::deliver(impl_->listeners, std::move(message));
      } catch (const std::exception& failure) {
        called("failed " + type + ": " + failure.what());
      }
    }
  }
}

Plugin::Plugin() : impl_(std::make_unique<Impl>()) {}
Plugin::~Plugin() = default;
void Plugin::set_name(const std::string& name) {
  impl_->name = name;
  called("set_name " + name);
}
void Plugin::set_run(int (*run)()) {
  impl_->run = run;
  called("set_run");
}
void Plugin::add_messages_interested(const MessageListener* listeners, std::size_t count) {
  impl_->interested.assign(listeners, listeners + count);
  for (const auto& listener : impl_->interested) {
    called("interested " + listed(listener));
  }
}

}  // namespace ac

namespace example {

void deliver(const Listeners& listeners, std::unique_ptr<ac::Message> message) {
  for (const auto& listener : listeners) {
    if (listener.type == message->type()) {
      listener.handler(message.get());
    }
  }
  auto& impl = ac::Message::Impl::of(*message);
  if (auto* const queue = std::exchange(impl.next_queue, nullptr); queue != nullptr) {
    ac::MessageEnqueuer::Impl::of(*queue).put(std::move(message));
  }
}

}  // namespace example
