// A handler for one type of message.
#pragma once

#include <functional>
#include <string>

namespace ac {

class Message;

struct MessageListener {
  // The name of the messages to be handled.
  std::string type;
  // Called with each of them. The host keeps the ownership of the message.
  std::function<void(ac::Message*)> handler;
  // For the host: its meaning is the host's.
  bool flag;
};

}  // namespace ac
