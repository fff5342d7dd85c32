// Telling a supervisor such as systemd how the process does.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace achost {

// Speaks to the datagram socket that the environment names in NOTIFY_SOCKET, as sd_notify(3) does; without one nothing
// is told. Any thread may call.
class Supervisor {
 public:
  Supervisor();
  ~Supervisor();
  Supervisor(const Supervisor&) = delete;
  Supervisor& operator=(const Supervisor&) = delete;

  // Tell a state, such as "READY=1" or "STATUS=..."; several in lines. A supervisor that does not listen misses it.
  void tell(const std::string& state) const;

  // How often it wants to hear WATCHDOG=1, half of WATCHDOG_USEC; nothing when it does not.
  static std::optional<std::chrono::milliseconds> watchdog_period();

 private:
  int socket_ = -1;  // connected; -1 without a supervisor
};

}  // namespace achost
