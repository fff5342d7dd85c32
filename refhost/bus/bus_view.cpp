#include "refhost/bus_view.h"

#include <utility>

#include "bus/message_impl.h"
#include "bus/routes.h"

namespace refhost {

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
