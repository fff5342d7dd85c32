// The reader at its port.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "ac/exception.h"
#include "failure.h"
#include "inventory_card_info.h"
#include "line/port_guard.h"
#include "line_faults.h"
#include "serial_port.h"
#include "t640.h"

namespace uhfctl {

using Clock = std::chrono::steady_clock;

// What one inventory brought.
struct Poll {
  bool answered = false;  // something came back
  std::vector<ac::UHF::InventoryCardInfo> tags;
  int answers = 0;  // frames of the reader, with a right checksum or another
  LineFault fault = LineFault::none;
  Clock::duration took{};  // until the last byte
};

// Which way bytes went.
enum class Direction { to_reader, from_reader };

// Sees the bytes of polls as they go over the line.
using Tap = std::function<void(Direction, std::span<const unsigned char>)>;

// Held for this process alone while the object lives. One thread uses it.
class Port {
 public:
  // timeout: how long the reader may take to begin its answer, in tenths of a second of the line. Throws Failure:
  // kNoReader when there is no such port, kPortBusy when somebody else has it.
  Port(const std::string& path, std::chrono::milliseconds timeout);

  const std::string& path() const { return path_; }

  // The driver, for all that asks and sets.
  const ac::UHF::T640& driver() const { return *driver_; }

  // The power, as a sign of life; a damaged answer is asked for again. Throws Failure kNoReader when nobody answers.
  unsigned short power_or_nobody() const;

  // The power of a reader that has answered before; also a sign of life after a poll without an answer, which is what
  // some readers say when there is no tag. Throws Failure kNoAnswer.
  unsigned short power() const;

  // Asks for the tags in the field and takes every frame of the answer, unlike the driver, which leaves out the older
  // half of the tag reports. An answer ends after 64 KiB or 2 s. Throws Failure kFailed when the line fails.
  Poll poll(const Tap& tap = nullptr) const;

 private:
  // Nothing when there is no good answer.
  std::optional<unsigned short> ask_power() const;

  std::string path_;
  std::chrono::milliseconds timeout_;
  line::PortGuard guard_;
  std::unique_ptr<ac::UHF::T640> driver_;
  std::unique_ptr<ac::UHF::SerialPort> line_;
};

// What a line that fails means for a person.
std::string line_failure(const std::string& path, const std::string& reason);

// Runs what talks to the reader; a failure of the line becomes a Failure kFailed that names the port.
template <typename Work>
auto talking(const Port& port, const Work& work) {
  try {
    return work();
  } catch (const ac::ac_exception& failure) {
    throw Failure(kFailed, line_failure(port.path(), failure.what()));
  }
}

}  // namespace uhfctl
