// Making sure that a serial port can be used, and by nobody else.
#pragma once

#include <string>

namespace achost {

// Holds the port for this process while it lives: two hosts exclude each other by a lock on the device, and a port that
// another program has open is refused.
class PortGuard {
 public:
  // Throws Failure: kNoReader when there is no such port or it cannot be opened, kPortBusy when somebody has it.
  explicit PortGuard(const std::string& path);
  ~PortGuard();
  PortGuard(const PortGuard&) = delete;
  PortGuard& operator=(const PortGuard&) = delete;

 private:
  int fd_;
};

// The line for a port that could not be opened for that reason (an errno).
std::string open_failure_text(const std::string& path, int reason);

}  // namespace achost
