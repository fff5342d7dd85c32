// Which subscriber wants which type of message.
#pragma once

#include <functional>
#include <memory>
#include <shared_mutex>
#include <string>
#include <vector>

#include "ac/message.h"
#include "refhost/delivery.h"
#include "refhost/subscriber.h"

namespace refhost {

// Any thread may call.
class Routes {
 public:
  // The one of the process. It is never destroyed: plug-in threads send until the process is gone.
  static Routes& instance();

  void add(Subscriber::Impl* subscriber);

  // When it returns, nobody puts a message into the subscriber's inbox any more.
  void remove(Subscriber::Impl* subscriber);

  // Put the message into the inbox of everybody who is interested in its type: copies, and the original for the last.
  // What `inline_for` would get is returned instead (null when it is null or not interested): that subscriber's own
  // thread is the caller and waits for the outcome. A message that nobody wants is counted.
  std::unique_ptr<ac::Message> post(std::unique_ptr<ac::Message> message, const Subscriber::Impl* inline_for);

  // Put a copy of the message, which reports, into the inbox of everybody who is interested in its type, but of those
  // of these names; or of the one of that name, which no tap sees.
  void post_followed(const ac::Message& message, const std::shared_ptr<Delivery::Impl>& delivery,
                     const std::vector<std::string>& except);
  void post_followed_to(const std::string& recipient, const ac::Message& message,
                        const std::shared_ptr<Delivery::Impl>& delivery);

  // A function that sees each message that is posted; when remove_tap() returns, it is not called any more.
  using Tap = std::function<void(const ac::Message&)>;
  void add_tap(const Tap* tap);
  void remove_tap(const Tap* tap);

 private:
  std::shared_mutex mutex_;  // guards all below, and the subscribers that each type has; held shared while messages are
                             // put, which is why remove() can promise
  std::vector<const Tap*> taps_;
};

}  // namespace refhost
