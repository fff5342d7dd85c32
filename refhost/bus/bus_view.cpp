#include "refhost/bus_view.h"

#include <type_traits>
#include <utility>

#include "bus/message_impl.h"
#include "bus/routes.h"
#include "refhost/log_entry.h"

namespace refhost {

nlohmann::ordered_json fields_of(const ac::Message& message) { return fields_of(field_bytes(message)); }

std::string_view field_bytes(const ac::Message& message) { return ac::Message::Impl::of(message).fields.bytes(); }

nlohmann::ordered_json fields_of(std::string_view bytes) {
  auto fields = nlohmann::ordered_json::object();
  Fields::for_each_in(bytes, [&](std::string_view name, const auto& value) { fields[std::string(name)] = value; });
  return fields;
}

std::string line_of(const ac::Message& message) {
  std::string line = message.type();
  ac::Message::Impl::of(message).fields.for_each([&](std::string_view name, const auto& value) {
    line.append(" ").append(name).append("=");
    if constexpr (std::is_same_v<std::decay_t<decltype(value)>, std::string>) {
      line += log::escape(value);
    } else {
      line += std::to_string(value);
    }
  });
  return line;
}

BusTap::BusTap(std::function<void(const ac::Message&)> see)
    : see_(std::make_unique<std::function<void(const ac::Message&)>>(std::move(see))) {
  Routes::instance().add_tap(see_.get());
}

BusTap::~BusTap() { Routes::instance().remove_tap(see_.get()); }

}  // namespace refhost
