// What has become of a message at each of its recipients.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ac/message.h"

namespace refhost {

// A message that is followed: whoever sent it learns who has handled it, and who could not. Any thread may call.
class Delivery {
 public:
  struct Impl;

  struct Recipient {
    std::string name;
    bool is_through = false;  // its handlers have run, those of a queue to which they moved the message too; or nothing
                              // will call them
    std::string failure;      // why one of them failed, or was not called; empty: all went well so far
    bool is_marked = false;   // one of them has done what mark() is for
  };

  // Called each time that a recipient is through, on its thread or on one that drops the message; it must be quick, and
  // not send. It may be called before the send returns.
  using OnReport = std::function<void()>;

  // Send a message without waiting to everybody who is interested in its type and not named in `except`, or to the
  // recipient of that name alone. No callback or reply of the message's is used.
  static std::shared_ptr<const Delivery> send(std::unique_ptr<ac::Message> message, OnReport on_report,
                                              const std::vector<std::string>& except = {});
  static std::shared_ptr<const Delivery> send_to(const std::string& recipient, std::unique_ptr<ac::Message> message,
                                                 OnReport on_report);

  // In the order in which they joined the bus; nobody when nobody was interested.
  std::vector<Recipient> recipients() const;

  // On a thread that calls the handlers of a followed message: remember of this recipient that they have done something
  // which is not to be done again should they be called once more. Nothing happens on another thread.
  static void mark();

  explicit Delivery(std::shared_ptr<Impl> impl);
  ~Delivery();
  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;

 private:
  const std::shared_ptr<Impl> impl_;
};

}  // namespace refhost
