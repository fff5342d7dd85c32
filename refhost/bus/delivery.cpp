#include "refhost/delivery.h"

#include <utility>

#include "bus/routes.h"
#include "bus/ticket.h"

namespace refhost {
namespace {

thread_local Ticket* current_ticket = nullptr;  // whose handlers this thread calls

std::size_t add_recipient(Delivery::Impl& delivery, const std::string& name) {
  const std::lock_guard lock(delivery.mutex);
  delivery.recipients.emplace_back();
  delivery.recipients.back().name = name;
  return delivery.recipients.size() - 1;
}

}  // namespace

Ticket::Ticket(std::shared_ptr<Delivery::Impl> delivery, const std::string& recipient)
    : delivery_(std::move(delivery)), place_(add_recipient(*delivery_, recipient)) {}

Ticket::~Ticket() {
  {
    const std::lock_guard lock(delivery_->mutex);
    auto& recipient = delivery_->recipients[place_];
    recipient.is_through = true;
    if (!handled_ && recipient.failure.empty()) {
      recipient.failure = "its queue took no more messages";
    }
  }
  if (delivery_->on_report) {
    delivery_->on_report();
  }
}

void Ticket::failed(const std::string& reason) {
  const std::lock_guard lock(delivery_->mutex);
  std::string& failure = delivery_->recipients[place_].failure;
  failure += (failure.empty() ? "" : "; ") + reason;
}

void Ticket::mark_current() {
  if (current_ticket != nullptr) {
    const std::lock_guard lock(current_ticket->delivery_->mutex);
    current_ticket->delivery_->recipients[current_ticket->place_].is_marked = true;
  }
}

void Ticket::enter() {
  handled_ = true;
  current_ticket = this;
}

void Ticket::leave() { current_ticket = nullptr; }

Delivery::Delivery(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}
Delivery::~Delivery() = default;

std::shared_ptr<const Delivery> Delivery::send(std::unique_ptr<ac::Message> message, OnReport on_report,
                                               const std::vector<std::string>& except) {
  auto impl = std::make_shared<Impl>(std::move(on_report));
  Routes::instance().post_followed(*message, impl, except);
  return std::make_shared<const Delivery>(std::move(impl));
}

std::shared_ptr<const Delivery> Delivery::send_to(const std::string& recipient, std::unique_ptr<ac::Message> message,
                                                  OnReport on_report) {
  auto impl = std::make_shared<Impl>(std::move(on_report));
  Routes::instance().post_followed_to(recipient, *message, impl);
  return std::make_shared<const Delivery>(std::move(impl));
}

std::vector<Delivery::Recipient> Delivery::recipients() const {
  const std::lock_guard lock(impl_->mutex);
  return impl_->recipients;
}

void Delivery::mark() { Ticket::mark_current(); }

}  // namespace refhost
