#include "refhost/bus_view.h"

#include <utility>

#include "bus/handler_table.h"
#include "bus/message_impl.h"
#include "bus/reply_slot.h"
#include "bus/routes.h"

namespace refhost {

// Each subscriber gets the right to answer, which nobody uses; when the last has let go of it, all are through.
bool flush_bus(std::chrono::milliseconds timeout) {
  const auto slot = std::make_shared<ReplySlot>();
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  Routes::instance().post_to_all([right = ReplySlot::right_to_answer(slot)] {
    auto message = std::make_unique<ac::Message>(kFlushType);
    ac::Message::Impl::of(*message).rare().right_to_answer = right;
    return message;
  });
  slot->wait(timeout);
  return std::chrono::steady_clock::now() < deadline;
}

nlohmann::ordered_json fields_of(const ac::Message& message) {
  auto fields = nlohmann::ordered_json::object();
  ac::Message::Impl::of(message).fields.for_each(
      [&](std::string_view name, const auto& value) { fields[std::string(name)] = value; });
  return fields;
}

BusTap::BusTap(std::function<void(const ac::Message&)> see)
    : see_(std::make_unique<std::function<void(const ac::Message&)>>(std::move(see))) {
  Routes::instance().add_tap(see_.get());
}

BusTap::~BusTap() { Routes::instance().remove_tap(see_.get()); }

}  // namespace refhost
