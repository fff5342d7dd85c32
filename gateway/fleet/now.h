// What time it is, as it goes over the broker.
#pragma once

#include <chrono>
#include <cstdint>

namespace fleet {

// ms since 1970 UTC.
inline std::int64_t now() {
  const auto time = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
}

}  // namespace fleet
