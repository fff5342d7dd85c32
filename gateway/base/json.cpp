#include "gateway/base/json.h"

namespace gateway {

std::string line_of(const Json& json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n"; }

}  // namespace gateway
