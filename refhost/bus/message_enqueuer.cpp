#include "ac/message_enqueuer.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "bus/enqueuer_impl.h"

namespace ac {

MessageEnqueuer::MessageEnqueuer() : impl_(std::make_unique<Impl>()) {}
MessageEnqueuer::~MessageEnqueuer() = default;

void MessageEnqueuer::listen(const MessageListener* listeners, std::size_t count) {
  impl_->handlers.add(listeners, count);
}

void MessageEnqueuer::process(int timeout_ms, const std::function<void()>& on_timeout) {
  // A time-out of 0 or less counts as 1 ms: the thread must not spin.
  const std::chrono::milliseconds period(std::max(timeout_ms, 1));
  auto next_timeout = std::chrono::steady_clock::now() + period;
  for (;;) {
    if (auto message = impl_->inbox.take(next_timeout)) {
      impl_->handlers.deliver(std::move(message), impl_->inbox.name());
    }
    // By the clock and not by an empty queue: a steady stream of messages must not keep the time-out from being told.
    if (const auto now = std::chrono::steady_clock::now(); now >= next_timeout) {
      on_timeout();
      next_timeout = now + period;
    }
  }
}

}  // namespace ac
