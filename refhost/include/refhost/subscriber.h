// A recipient of the bus: a plug-in or a service of the host.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "ac/message_listener.h"

namespace refhost {

// A named mailbox with a bounded queue and a delivery thread of its own. The thread calls the handlers of each message
// one after the other, in the order in which a sender sent them; handlers of different subscribers run at the same
// time. An exception that leaves a handler is logged and counted and goes no further.
//
// Make and destroy it on any thread but its own delivery thread. Nothing else needs a lock of the caller's.
class Subscriber {
 public:
  struct Impl;

  // Messages that may wait, besides those that the delivery thread has taken and is handling. At the bound the newest
  // message is dropped for this subscriber: counted (bus_counters().dropped), and logged once a burst.
  static constexpr std::size_t kDefaultBound = 16384;

  // Join the bus: messages of the listeners' types sent from now on are delivered. name: for the log, the thread and
  // the watchdog. patience: how many of the watchdog's limits the handling of one message may take.
  Subscriber(const std::string& name, const std::vector<ac::MessageListener>& listeners,
             std::size_t bound = kDefaultBound, int patience = 1);

  // Leave the bus, deliver what still waits and end the thread.
  ~Subscriber();

  Subscriber(const Subscriber&) = delete;
  Subscriber& operator=(const Subscriber&) = delete;

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace refhost
