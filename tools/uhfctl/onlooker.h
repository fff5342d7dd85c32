// Looking on at a door's line.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "door.h"
#include "port.h"

namespace uhfctl {

// What went over the line at once.
struct SeenPiece {
  Clock::time_point at;
  Direction direction = Direction::to_reader;
  std::vector<unsigned char> bytes;
};

// One thread uses it.
class Onlooker {
 public:
  // Throws Failure.
  explicit Onlooker(const Door& door);

  // The next piece; nothing when none came in time. Throws Failure kFailed when the door has ended.
  std::optional<SeenPiece> next(std::chrono::milliseconds time);

  // Bytes that the door left out, as they came faster than they were taken.
  std::uint64_t left_out() const { return left_out_; }

 private:
  Connection connection_;
  std::uint64_t left_out_ = 0;
};

}  // namespace uhfctl
