// The device that the host runs on.
#pragma once

#include <cstdint>

namespace ac_dal::device {

// The device's id. May be called on any thread; never fails.
std::int64_t this_id();

}  // namespace ac_dal::device
