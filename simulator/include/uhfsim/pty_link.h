#pragma once

#include <cstddef>
#include <string>

#include "uhfsim/bytes.h"
#include "uhfsim/descriptor.h"

namespace uhfsim {

/// The two ends of a pseudo-terminal: the simulator keeps the master, a client opens the slave by its path.
///
/// The slave is raw from the start, so that nothing is echoed or translated before the client sets it up. One slave
/// descriptor stays open here: a client may close and come back, and the master never sees a hang-up in between. What
/// such a client has left unread waits for the next one.
///
/// No operation blocks. Only one thread at a time may use an object.
class PtyLink {
 public:
  /// Throws std::system_error when the system gives no pseudo-terminal.
  PtyLink();

  /// The path of the slave.
  const std::string& path() const { return path_; }

  /// The master, to be polled.
  int fd() const { return master_.get(); }

  /// Takes what the client has sent, at most 4096 bytes; empty when there is nothing now. Throws std::system_error.
  Bytes read();

  /// Hands bytes to the client and returns how many of them there was room for, which may be 0.
  /// Throws std::system_error.
  std::size_t write(ByteView bytes);

 private:
  Descriptor master_;
  Descriptor slave_;
  std::string path_;
};

}  // namespace uhfsim
