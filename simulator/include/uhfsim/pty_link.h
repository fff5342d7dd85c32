#pragma once

#include <cstddef>
#include <string>

#include "uhfsim/bytes.h"
#include "uhfsim/descriptor.h"

namespace uhfsim {

/// The two ends of a pseudo-terminal: the simulator keeps the master, a client opens the slave by its path.
///
/// The slave is raw from the start, so that nothing is echoed or translated before the client sets it up. A client may
/// close and come back. As at a real port, what the last one left unread is dropped when it closes: a pseudo-terminal
/// alone would keep it for the next one. From then on until somebody sends again the slave is held open here, because a
/// master without any open slave would be ready, and have nothing, all the time.
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

  /// Takes what the client has sent, at most 4096 bytes; empty when there is nothing now, or the last client has
  /// closed. Throws std::system_error.
  Bytes read();

  /// Hands bytes to the client and returns how many of them there was room for, which may be 0. What nobody is there
  /// for is lost, as on a wire. Throws std::system_error.
  std::size_t write(ByteView bytes);

  /// Whether a client has sent something and has not closed since, as far as read() has seen.
  bool attended() const { return slave_.get() < 0; }

 private:
  void hold();
  void let_go();

  Descriptor master_;
  Descriptor slave_;  // open while nobody has spoken
  std::string path_;
};

}  // namespace uhfsim
