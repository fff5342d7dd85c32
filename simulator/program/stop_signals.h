#pragma once

#include "uhfsim/descriptor.h"

namespace uhfsim {

/// Turns SIGINT, SIGTERM and a closed terminal's SIGHUP into a descriptor that becomes readable, and ignores SIGPIPE,
/// so that a reader of our output who leaves does not take the line down. To be built before any thread starts: they
/// inherit the signal mask.
class StopSignals {
 public:
  /// Throws std::system_error.
  StopSignals();

  /// Readable once one of the signals has come.
  int fd() const { return descriptor_.get(); }

 private:
  Descriptor descriptor_;
};

}  // namespace uhfsim
