#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "uhfsim/bytes.h"
#include "uhfsim/random.h"

namespace uhfsim {

/// A part of what goes to the line.
struct Sending {
  Bytes bytes;
  /// Silence before the first of the bytes.
  std::chrono::milliseconds pause{0};
  /// The line hangs up after the bytes.
  bool hang_up = false;

  bool operator==(const Sending&) const = default;
};

/// A fault as help shows it.
struct FaultHelp {
  std::string_view name;
  std::string_view meaning;
};

/// Stands between the engine's reply and the line: passes, drops, replaces or adds. With no fault switched on every
/// reply passes as it is. Any thread may call any operation.
class FaultInjector {
 public:
  /// How much later a late answer comes: later than most hosts wait.
  static constexpr std::chrono::milliseconds kLate{1000};

  /// The silence inside an answer that is split: long enough for the client to read the first piece alone.
  static constexpr std::chrono::milliseconds kGap{20};

  /// Bytes of a flood.
  static constexpr std::size_t kFloodBytes = 65'536;

  explicit FaultInjector(std::uint64_t seed) : random_(seed) {}

  /// Every fault, in the order in which they strike.
  static std::vector<FaultHelp> help();

  /// The names that set() takes, in that order.
  static std::vector<std::string_view> names();

  /// Switches a fault on: each reply suffers it with this probability, 0.0 to 1.0; 0 switches it off.
  /// Throws std::invalid_argument with one line when the name is unknown or the probability out of range.
  void set(std::string_view name, double probability);

  /// Switches every fault off.
  void clear();

  /// What goes to the line instead of this reply, one part after the other. received is what the command came in, for
  /// the fault that sends it back.
  std::vector<Sending> intercept(Bytes reply, ByteView received = {});

 private:
  std::mutex mutex_;  // guards all below
  Random random_;
  std::map<std::string_view, double> active_;  // by name from the table of faults
};

}  // namespace uhfsim
