// Sending messages over the host's bus.
#pragma once

#include <memory>

#include "ac/message.h"

namespace ac {

// Static operations only; each may be called on any thread, also from inside a handler.
class PostOffice {
 public:
  PostOffice() = delete;

  // Deliver the message to everybody who is interested in its type, without waiting. Takes ownership.
  static void send_message(std::unique_ptr<ac::Message> message);

  // The same, and wait until the message was answered or the host gives up, which leaves replied() of the attached
  // MessageReply false. Takes ownership; the MessageReply must outlive the call.
  static void send_message_sync(std::unique_ptr<ac::Message> message);
};

}  // namespace ac
