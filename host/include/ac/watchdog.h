// The host's supervision of threads.
#pragma once

#include <string>

namespace ac::watchdog {

// The named activity is alive. From the first call on the host expects the next one within its limit for that name.
// May be called on any thread, with any lock held; never fails.
void keep_alive(const std::string& name);

}  // namespace ac::watchdog
