// A recipient's part in a message that is followed.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "refhost/delivery.h"

namespace refhost {

struct Delivery::Impl {
  explicit Impl(OnReport report) : on_report(std::move(report)) {}

  const OnReport on_report;
  std::mutex mutex;  // guards recipients
  std::vector<Recipient> recipients;
};

// It goes with the recipient's message, also into another queue, and reports when that goes: so nobody can forget to,
// whoever drops the message. Used by one thread at a time.
class Ticket {
 public:
  // Also makes the recipient one of the delivery's.
  Ticket(std::shared_ptr<Delivery::Impl> delivery, const std::string& recipient);
  ~Ticket();
  Ticket(const Ticket&) = delete;
  Ticket& operator=(const Ticket&) = delete;

  // While handlers are called, of a message that has a ticket or none: most have none, so that is one look. One within
  // another has none: what is sent synchronously is not followed.
  class Handling {
   public:
    explicit Handling(Ticket* ticket) : ticket_(ticket) {
      if (ticket_ != nullptr) {
        ticket_->enter();
      }
    }
    ~Handling() {
      if (ticket_ != nullptr) {
        leave();
      }
    }
    Handling(const Handling&) = delete;
    Handling& operator=(const Handling&) = delete;

   private:
    Ticket* const ticket_;
  };

  void failed(const std::string& reason);

  // The message goes to a queue, whose handlers are to be called too.
  void moves_on() { handled_ = false; }

  // To the ticket whose handlers this thread calls, if there is one.
  static void mark_current();

 private:
  // This thread calls the handlers from now on; no longer.
  void enter();
  static void leave();

  const std::shared_ptr<Delivery::Impl> delivery_;
  const std::size_t place_;  // among the recipients
  bool handled_ = false;
};

}  // namespace refhost
