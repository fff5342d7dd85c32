// The place where the answer to one message arrives.
#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>

#include "ac/message.h"
#include "bus/fields.h"

namespace refhost {

// Shared by the sender and by every copy of the message. The answering side never sees the sender's MessageReply: an
// answer lands here, and the sender fetches it, so that one that comes too late touches nothing that may be gone.
// Any thread may call.
class ReplySlot {
 public:
  // callback: called with the answer, on the thread that answers; may be empty.
  explicit ReplySlot(ac::ReplyCallback callback = nullptr);

  // The right to answer, to be held by the recipients. Once the last copy of it is gone nobody can answer any more, and
  // the sender stops waiting.
  static std::shared_ptr<ReplySlot> right_to_answer(std::shared_ptr<ReplySlot> slot);

  // Answer. The first answer counts: false when there was one before or when the sender has given up.
  bool answer(const Fields& fields);

  // Wait for the answer; nothing when nobody can answer any more or the time-out has passed.
  std::optional<Fields> wait(std::chrono::milliseconds timeout);

 private:
  void close();

  const ac::ReplyCallback callback_;
  std::mutex mutex_;  // guards everything below
  std::condition_variable changed_;
  bool open_ = true;  // an answer is still welcome
  std::optional<Fields> answer_;
};

}  // namespace refhost
