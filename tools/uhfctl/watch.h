// Polls as they go over the line, whoever asks.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "port.h"

namespace uhfctl {

// One thread uses it.
class Watch {
 public:
  virtual ~Watch() = default;

  // The next poll; nothing when none was done for a moment. The tap sees the bytes; without one, a reader that says
  // nothing is asked for a sign of life. Throws Failure when the line, or the reader, is no more.
  virtual std::optional<Poll> next(const Tap& tap = nullptr) = 0;

  // Bytes that came faster than they were taken, and are not among those of the tap.
  virtual std::uint64_t left_out() const { return 0; }

  // The door whose polls these are; empty when they are our own.
  virtual std::string whose() const { return ""; }
};

// Our own polls, or, beside a door that has the port, those of its plug-in, which works on. Throws Failure.
std::unique_ptr<Watch> watch(const Common& common);

}  // namespace uhfctl
