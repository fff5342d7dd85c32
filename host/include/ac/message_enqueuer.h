// A message queue of a plug-in's own, drained by a thread of the plug-in.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "ac/message_listener.h"

namespace ac {

class MessageEnqueuer {
 public:
  struct Impl;

  // An empty queue without listeners. The plug-in's is made when it is loaded, before init().
  MessageEnqueuer();
  ~MessageEnqueuer();
  MessageEnqueuer(const MessageEnqueuer&) = delete;
  MessageEnqueuer& operator=(const MessageEnqueuer&) = delete;

  // Register handlers for messages that are transferred into this queue (Message::transfer). The listeners are copied.
  // To be called before process(), by one thread.
  void listen(const MessageListener* listeners, std::size_t count);

  // Run the queue on the calling thread, without returning: take each message and call its handler; call on_timeout
  // whenever timeout_ms milliseconds have passed, both with no lock held. What a handler throws is logged by the host
  // and goes no further; an exception of on_timeout leaves process(). To be called by one thread, once.
  [[noreturn]] void process(int timeout_ms, const std::function<void()>& on_timeout);

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace ac
