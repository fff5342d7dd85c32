// Making sure that a serial port can be used, and by nobody else.
#pragma once

#include <sys/types.h>

#include <stdexcept>
#include <string>

namespace line {

// A port that cannot be had. what() is one line with the way out.
class PortError : public std::runtime_error {
 public:
  enum class Kind {
    unusable,  // there is no such port, or it cannot be opened
    busy,      // somebody else has it
  };

  // holder: the process that has the port, or 0.
  PortError(Kind kind, const std::string& text, pid_t holder = 0)
      : std::runtime_error(text), kind_(kind), holder_(holder) {}

  Kind kind() const { return kind_; }

  // The process that has the port; 0 when it is not known: those of other users cannot be looked into.
  pid_t holder() const { return holder_; }

 private:
  Kind kind_;
  pid_t holder_;
};

// Holds the port for this process while it lives: two of our programs exclude each other by a lock on the device, and a
// port that another program has open is refused. What waits in the port then is dropped: it was meant for somebody
// before, and would be taken for the answer to the first command. The port is raw before a byte of it is read: what a
// reader sends is never a terminal's signal.
class PortGuard {
 public:
  // alternative: what else a user may try when there is no such port. Throws PortError.
  PortGuard(const std::string& path, const std::string& alternative);
  ~PortGuard();
  PortGuard(const PortGuard&) = delete;
  PortGuard& operator=(const PortGuard&) = delete;

  // Raw and without blocking, for whoever uses the port through the guard.
  int fd() const { return fd_; }

 private:
  int fd_;
};

// The line for a port that could not be opened for that reason (an errno).
std::string open_failure_text(const std::string& path, int reason, const std::string& alternative);

}  // namespace line
