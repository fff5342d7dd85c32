// What stands behind refhost::Subscriber.
#pragma once

#include <memory>
#include <string>
#include <thread>

#include "bus/handler_table.h"
#include "bus/inbox.h"
#include "refhost/subscriber.h"
#include "refhost/work.h"

namespace refhost {

struct Subscriber::Impl {
  Impl(const std::string& name, std::size_t bound, int patience)
      : inbox(name, bound), work("delivery to " + name, patience, [this] { return inbox.has_waiting(); }) {}

  // On the delivery thread, or inline on it by a synchronous send from one of its handlers.
  void deliver(std::unique_ptr<ac::Message> message) const { handlers.deliver(std::move(message), inbox.name()); }

  // Body of the delivery thread.
  void run();

  // The subscriber whose delivery thread is calling; null on any other thread.
  static Impl* of_this_thread();

  HandlerTable handlers;  // constant once the subscriber has joined the bus
  Inbox inbox;
  Work work;  // a message is a step; the delivery thread's
  std::thread thread;
};

}  // namespace refhost
