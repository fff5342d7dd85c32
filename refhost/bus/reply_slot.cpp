#include "bus/reply_slot.h"

#include <utility>

#include "bus/message_impl.h"

namespace refhost {

ReplySlot::ReplySlot(ac::ReplyCallback callback) : callback_(std::move(callback)) {}

std::shared_ptr<ReplySlot> ReplySlot::right_to_answer(std::shared_ptr<ReplySlot> slot) {
  ReplySlot* raw = slot.get();
  return {raw, [slot = std::move(slot)](ReplySlot*) { slot->close(); }};
}

bool ReplySlot::answer(const Fields& fields) {
  {
    const std::lock_guard lock(mutex_);
    if (!std::exchange(open_, false)) {
      return false;
    }
    if (!callback_) {
      answer_ = fields;
      changed_.notify_all();
      return true;
    }
  }
  ac::MessageReply reply;
  ac::MessageReply::Impl::of(reply).fill(fields);
  callback_(reply);
  return true;
}

std::optional<Fields> ReplySlot::wait(std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, timeout, [this] { return !open_; });
  open_ = false;
  return answer_;
}

void ReplySlot::close() {
  const std::lock_guard lock(mutex_);
  open_ = false;
  changed_.notify_all();
}

}  // namespace refhost
