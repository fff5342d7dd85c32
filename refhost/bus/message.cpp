#include "ac/message.h"

#include <utility>

#include "bus/message_impl.h"

namespace ac {

Message::Message(const std::string& type, int argument, ReplyCallback callback)
    : impl_(std::make_unique_for_overwrite<Impl>()) {
  impl_->type = refhost::MessageType::find(type);
  if (impl_->type == nullptr) {
    impl_->rare().name = type;
  }
  impl_->argument = argument;
  if (callback) {
    impl_->rare().callback = std::move(callback);
  }
}

Message::~Message() = default;

void Message::add_int(const std::string& name, int value) { impl_->fields.add(name, value); }
void Message::add_int64(const std::string& name, std::int64_t value) { impl_->fields.add(name, value); }
void Message::add_string(const std::string& name, const std::string& value) { impl_->fields.add(name, value); }

// The interface passes the names by value.
// NOLINTBEGIN(performance-unnecessary-value-param)
bool Message::get_int(std::string name, int* value) const { return impl_->fields.get(name, value); }
bool Message::get_int64(std::string name, std::int64_t* value) const { return impl_->fields.get(name, value); }
bool Message::get_string(std::string name, std::string* value) const { return impl_->fields.get(name, value); }
// NOLINTEND(performance-unnecessary-value-param)

const std::string& Message::type() const { return impl_->name(); }

void Message::set_reply(MessageReply* reply) { impl_->rare().reply = reply; }

// This host delivers a message to every listener of its type, so it needs no telling that one of them took it.
void Message::set_handled() {}

void Message::transfer(MessageEnqueuer* queue) { impl_->rare().next_queue = queue; }

std::unique_ptr<Message> Message::Impl::copy(const Message& message) {
  const Impl& from = of(message);
  auto result = std::make_unique<Message>(from.name(), from.argument);
  of(*result).fields = from.fields;
  if (from.existing_rare != nullptr && from.existing_rare->right_to_answer != nullptr) {
    of(*result).rare().right_to_answer = from.existing_rare->right_to_answer;
  }
  return result;
}

}  // namespace ac
