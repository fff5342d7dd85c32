#include "gateway/base/json.h"

#include <utility>

namespace gateway {

Json parsed(std::string_view text) {
  using Event = Json::parse_event_t;
  bool is_deep = false;
  const auto look = [&is_deep](int around, Event event, const Json&) {
    const bool begins = event == Event::object_start || event == Event::array_start;
    is_deep = is_deep || (begins && around >= kDeepest);
    return !is_deep;  // what is not kept takes no memory
  };
  Json json = Json::parse(text, look, false);
  return is_deep ? Json(Json::value_t::discarded) : std::move(json);
}

std::string line_of(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n"; }

}  // namespace gateway
