// The handlers of one recipient, by type of message.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ac/message.h"
#include "ac/message_listener.h"
#include "bus/message_type.h"

namespace refhost {

// Filled before messages are delivered, constant from then on.
class HandlerTable {
 public:
  // Append handlers; several for one type are called in the order in which they were added.
  void add(const ac::MessageListener* listeners, std::size_t count);

  // Call the handlers of the message's type, then move the message on when one of them transferred it. What a handler
  // throws is logged with the recipient's name and the message's type, and counted; the others are called all the
  // same. A message without a handler is counted as undelivered.
  void deliver(std::unique_ptr<ac::Message> message, const std::string& recipient) const;

  // Each type that has a handler.
  std::vector<MessageType*> types() const;

 private:
  using Handler = std::function<void(ac::Message*)>;
  using Entry = std::pair<MessageType*, std::vector<Handler>>;
  std::vector<Entry> handlers_;  // so few that to look at each is the quickest search
};

}  // namespace refhost
