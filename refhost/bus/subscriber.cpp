#include "refhost/subscriber.h"

#include <pthread.h>

#include <new>
#include <utility>

#include "ac/util.h"
#include "bus/counters.h"
#include "bus/routes.h"
#include "bus/subscriber_impl.h"

namespace refhost {
namespace {

thread_local Subscriber::Impl* current = nullptr;

}  // namespace

Subscriber::Impl* Subscriber::Impl::of_this_thread() { return current; }

void Subscriber::Impl::run() {
  current = this;
  ac::util::set_thread_name(inbox.name(), pthread_self());
  while (auto message = inbox.take()) {
    const Work::Step step(work);
    try {
      deliver(std::move(message));
    } catch (const std::bad_alloc&) {  // to move a message on; the thread goes on
      count(running_counters.failures);
    }
  }
}

Subscriber::Subscriber(const std::string& name, const std::vector<ac::MessageListener>& listeners, std::size_t bound,
                       int patience)
    : impl_(std::make_unique<Impl>(name, bound, patience)) {
  impl_->handlers.add(listeners.data(), listeners.size());
  impl_->thread = std::thread([impl = impl_.get()] { impl->run(); });
  Routes::instance().add(impl_.get());
}

Subscriber::~Subscriber() {
  Routes::instance().remove(impl_.get());
  impl_->inbox.close();
  impl_->thread.join();
}

}  // namespace refhost
