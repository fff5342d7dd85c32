#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "uhfsim/bytes.h"
#include "uhfsim/random.h"

namespace uhfsim {

/// Stands between the engine's reply and the line: passes, drops, replaces or adds. With no fault switched on every
/// reply passes as it is. Any thread may call any operation.
class FaultInjector {
 public:
  explicit FaultInjector(std::uint64_t seed) : random_(seed) {}

  /// The names that set() takes.
  static std::vector<std::string_view> names();

  /// Switches a fault on: each reply suffers it with this probability, 0.0 to 1.0; 0 switches it off.
  /// Throws std::invalid_argument with one line when the name is unknown or the probability out of range.
  void set(std::string_view name, double probability);

  /// What goes to the line instead of this reply: any number of byte vectors, to be sent one after the other.
  std::vector<Bytes> intercept(Bytes reply);

 private:
  std::mutex mutex_;  // guards all below
  Random random_;
  std::map<std::string_view, double> active_;  // by name from the table of faults
};

}  // namespace uhfsim
