#pragma once

#include <string>

#include "uhfsim/bytes.h"
#include "uhfsim/descriptor.h"

namespace uhfsim::testing {

/// A client of the simulated line, as plain as can be.
class LineClient {
 public:
  enum class Setup { raw, untouched };

  /// Opens the line; a failure fails the test.
  explicit LineClient(const std::string& path, Setup setup = Setup::raw);

  void send(const Bytes& bytes) const;

  /// What one read gives, waiting up to ten seconds for it; empty if nothing comes.
  Bytes receive_some() const;

  /// So many bytes, waiting up to ten seconds for each part; fewer if they do not come.
  Bytes receive(std::size_t count) const;

  /// Whether the line hangs up within ten seconds.
  bool hangs_up() const;

  /// Whether something is there to be read now.
  bool waiting() const;

 private:
  Descriptor line_;
};

}  // namespace uhfsim::testing
