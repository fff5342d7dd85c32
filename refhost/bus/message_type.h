// The types of messages that somebody listens to, or did.
#pragma once

#include <atomic>
#include <string>
#include <string_view>
#include <vector>

#include "refhost/subscriber.h"

namespace refhost {

// There is one object for each name, and it is never destroyed: a message points to its own, and two types are the same
// when their addresses are. Only listening makes one, so that names which senders think up do not stay in memory.
class MessageType {
 public:
  // The type of that name, made when there is none yet. Any thread may call.
  static MessageType& of(std::string_view name);

  // The same; null when there is none. Takes no lock. Any thread may call.
  static MessageType* find(std::string_view name);

  const std::string name;

  std::vector<Subscriber::Impl*> subscribers;  // of the bus; guarded by Routes

 private:
  explicit MessageType(std::string_view its_name) : name(its_name) {}

  MessageType* next_ = nullptr;  // in the table; constant once it is there
};

}  // namespace refhost
