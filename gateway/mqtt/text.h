// What several files say of time and JSON.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "gateway/base/daemon.h"

namespace mqtt {

// ms since 1970 UTC.
inline std::int64_t now_ms() {
  const auto since = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(since).count();
}

// What is no UTF-8 is replaced.
inline std::string text_of(const gateway::Json& value) {
  return value.dump(-1, ' ', false, gateway::Json::error_handler_t::replace);
}

}  // namespace mqtt
