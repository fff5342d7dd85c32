#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "uhfsim/bytes.h"
#include "uhfsim/field.h"
#include "uhfsim/random.h"

namespace uhfsim {

class CommandScanner;
struct CommandFrame;

/// Settings of the receiver's demodulator.
struct Sensitivity {
  std::uint8_t m = 2;  // mixer gain
  std::uint8_t i = 6;  // gain of the intermediate-frequency amplifier
  std::uint16_t threshold = 160;

  bool operator==(const Sensitivity&) const = default;
};

/// What the module has been told, or its factory values.
struct State {
  /// Transmit power as it stands on the wire.
  std::uint16_t power = 2600;
  /// Region code as it stands on the wire.
  std::uint8_t region = 0x01;
  /// Working channels in the order in which they were inserted, each once.
  std::vector<std::uint8_t> channels{};
  Sensitivity sensitivity{};

  bool operator==(const State&) const = default;
};

/// What the engine has seen and said since it was built.
struct ReaderCounters {
  std::uint64_t commands = 0;  // whole commands, unknown ones included
  std::uint64_t notices = 0;   // tags reported
  std::uint64_t skipped = 0;   // received bytes that belong to no valid command
};

/// The reader module's protocol engine: bytes in, replies out; no I/O, no thread, no clock.
///
/// Every command that it knows is answered with its response; an inventory with one notice for each tag read in this
/// round, in random order. A response with code 0xFF and one status byte says what went wrong: 0x15 no tag read, 0x17
/// unknown command, 0x0E too few parameters (nothing is changed then).
///
/// Not thread-safe; the field that it reads is.
class Reader {
 public:
  static constexpr std::uint8_t kNoTag = 0x15;
  static constexpr std::uint8_t kUnknownCommand = 0x17;
  static constexpr std::uint8_t kBadParameters = 0x0E;

  struct Options {
    /// Two readers with the same seed, tags and commands give the same bytes.
    std::uint64_t seed = 1;
    /// Say nothing at all, instead of 0xFF with kNoTag, when an inventory reads no tag.
    bool quiet_when_empty = false;
  };

  /// The field must live as long as the reader.
  Reader(const Field& field, Options options);
  ~Reader();
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  /// Takes received bytes and returns the replies to the commands that they complete, in order: one vector for each
  /// command that gets an answer; all notices of an inventory are one vector. Incomplete input is kept for the next
  /// call; junk and frames with a wrong checksum or end byte are skipped and counted.
  std::vector<Bytes> feed(ByteView bytes);

  /// Drops incomplete input, as after a pause on the line.
  void forget_input();

  const State& state() const { return state_; }

  ReaderCounters counters() const;

 private:
  struct Command;
  static const Command kCommands[];

  Bytes answer(const CommandFrame& frame);
  Bytes set_work_area(ByteView parameters);
  Bytes inventory(ByteView parameters);
  Bytes insert_channels(ByteView parameters);
  Bytes set_power(ByteView parameters);
  Bytes get_power(ByteView parameters);
  Bytes set_sensitivity(ByteView parameters);
  Bytes get_sensitivity(ByteView parameters);

  std::vector<Tag> read_round();

  const Field& field_;
  const Options options_;
  Random random_;
  std::unique_ptr<CommandScanner> scanner_;
  State state_;
  std::uint64_t commands_ = 0;
  std::uint64_t notices_ = 0;
};

}  // namespace uhfsim
