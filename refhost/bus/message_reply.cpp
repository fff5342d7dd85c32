#include "ac/message.h"
#include "bus/message_impl.h"

namespace ac {

MessageReply::MessageReply() : impl_(std::make_unique<Impl>()) {}
MessageReply::~MessageReply() = default;

bool MessageReply::replied() const { return impl_->replied; }

// The interface passes the names by value.
// NOLINTBEGIN(performance-unnecessary-value-param)
bool MessageReply::get_int(std::string name, int* value) const { return impl_->fields.get(name, value); }
bool MessageReply::get_int64(std::string name, std::int64_t* value) const { return impl_->fields.get(name, value); }
bool MessageReply::get_string(std::string name, std::string* value) const { return impl_->fields.get(name, value); }
// NOLINTEND(performance-unnecessary-value-param)

}  // namespace ac
