#include "ac/post_office.h"

#include <atomic>
#include <string>
#include <utility>

#include "bus/message_impl.h"
#include "bus/routes.h"
#include "bus/subscriber_impl.h"
#include "refhost/log.h"
#include "refhost/post_office.h"

namespace refhost {
namespace {

// Written by set_sync_timeout, read by every synchronous send.
std::atomic<std::chrono::milliseconds> sync_timeout{std::chrono::milliseconds(2000)};

// How many synchronous sends to itself the calling thread is in the middle of, each from a handler of the one before.
thread_local int depth = 0;
constexpr int kDeepest = 16;

// A handler that sends itself what it handles would go on until the stack ends; the message that goes too far is not
// handled, as one whose answer did not come.
void deliver_inline(const Subscriber::Impl& own, std::unique_ptr<ac::Message> message) {
  if (depth == kDeepest) {
    log::error(own.inbox.name() + ": its handlers send \"" + message->type() +
               "\" to themselves, one within another, " + std::to_string(kDeepest) + " times: the last is dropped");
    return;
  }
  ++depth;
  own.deliver(std::move(message));  // throws nothing
  --depth;
}

}  // namespace

void set_sync_timeout(std::chrono::milliseconds timeout) { sync_timeout.store(timeout); }

}  // namespace refhost

namespace ac {

// A MessageReply attached to a message that is sent without waiting stays empty: nothing says how long it lives. The
// answer goes to the message's callback.
void PostOffice::send_message(std::unique_ptr<Message> message) {
  auto& impl = Message::Impl::of(*message);
  if (impl.existing_rare != nullptr && impl.existing_rare->callback) {
    const auto slot = std::make_shared<refhost::ReplySlot>(std::move(impl.rare().callback));
    impl.rare().right_to_answer = refhost::ReplySlot::right_to_answer(slot);
  }
  refhost::Routes::instance().post(std::move(message), nullptr);
}

// The caller's own subscriber, when it is a recipient, handles the message here: its thread is the one that waits.
// Two subscribers that ask each other at the same time wait until the time-out.
void PostOffice::send_message_sync(std::unique_ptr<Message> message) {
  auto& impl = Message::Impl::of(*message);
  MessageReply* reply = impl.rare().reply;
  const auto slot = std::make_shared<refhost::ReplySlot>();
  impl.rare().right_to_answer = refhost::ReplySlot::right_to_answer(slot);
  const auto* own = refhost::Subscriber::Impl::of_this_thread();
  if (auto mine = refhost::Routes::instance().post(std::move(message), own)) {
    refhost::deliver_inline(*own, std::move(mine));
  }
  auto answer = slot->wait(refhost::sync_timeout.load());
  if (answer.has_value() && reply != nullptr) {
    MessageReply::Impl::of(*reply).fill(*answer);
  }
}

}  // namespace ac
