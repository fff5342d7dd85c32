#include "refhost/answer.h"

#include <utility>

#include "bus/fields.h"
#include "bus/message_impl.h"
#include "bus/reply_slot.h"

namespace refhost {

struct Answer::Impl {
  std::shared_ptr<ReplySlot> right_to_answer;
  Fields fields;
};

Answer::Answer(const ac::Message& message) : impl_(std::make_unique<Impl>()) {
  if (const auto& rare = ac::Message::Impl::of(message).existing_rare; rare != nullptr) {
    impl_->right_to_answer = rare->right_to_answer;
  }
}

Answer::~Answer() = default;
Answer::Answer(Answer&&) noexcept = default;
Answer& Answer::operator=(Answer&&) noexcept = default;

Answer& Answer::add_int(const std::string& name, int value) {
  impl_->fields.add(name, value);
  return *this;
}

Answer& Answer::add_int64(const std::string& name, std::int64_t value) {
  impl_->fields.add(name, value);
  return *this;
}

Answer& Answer::add_string(const std::string& name, const std::string& value) {
  impl_->fields.add(name, value);
  return *this;
}

bool Answer::send() {
  const auto right = std::exchange(impl_->right_to_answer, nullptr);
  return right != nullptr && right->answer(impl_->fields);
}

}  // namespace refhost
