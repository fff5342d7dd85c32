// What stands behind ac::MessageEnqueuer in this host.
#pragma once

#include "ac/message_enqueuer.h"
#include "bus/handler_table.h"
#include "bus/inbox.h"

struct ac::MessageEnqueuer::Impl {
  // Messages that may wait in a plug-in's own queue.
  static constexpr std::size_t kBound = 16384;

  refhost::HandlerTable handlers;  // constant once process() runs
  refhost::Inbox inbox{"queue of a plug-in", kBound};

  static Impl& of(ac::MessageEnqueuer& enqueuer) { return *enqueuer.impl_; }
};
