// Sending messages over the host's bus.
#pragma once

#include <memory>

#include "ac/message.h"

namespace ac {

// Static operations only; each may be called on any thread, also from inside a handler.
class PostOffice {
 public:
  PostOffice() = delete;

  // Deliver the message to everybody who is interested in its type, without waiting for anybody. Messages of one sender
  // reach each receiver in the order in which they were sent. Takes ownership. A receiver whose queue is full loses it;
  // the host counts and says so, and nothing is thrown.
  static void send_message(std::unique_ptr<ac::Message> message);

  // The same, and wait until the message was answered or the host gives up, which leaves replied() of the attached
  // MessageReply false. Takes ownership; the MessageReply must outlive the call, and nothing writes to it afterwards.
  // The caller must hold no lock that a handler takes.
  static void send_message_sync(std::unique_ptr<ac::Message> message);
};

}  // namespace ac
