// A handler for one type of message.
#pragma once

#include <functional>
#include <string>

namespace ac {

class Message;

struct MessageListener {
  // The name of the messages to be handled.
  std::string type;
  // Called with each of them, in order, on a delivery thread of the host's, or on the thread of the queue that it
  // listens to; with no lock of the host's held. A host may have several delivery threads, so handlers of different
  // types may run at once. The host keeps the ownership of the message, which lives as long as the call. What the
  // handler throws is logged by the host and goes no further.
  std::function<void(ac::Message*)> handler;
  // For the host: its meaning is the host's.
  bool flag;
};

}  // namespace ac
