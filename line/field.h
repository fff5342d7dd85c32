// What lies before the reader, from what goes over its line.
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>
#include <vector>

#include "line/bytes.h"
#include "line/line.h"

namespace line {

// The polls of late, and the tags that they have read. One thread uses it.
class Field {
 public:
  // window: what "of late" is.
  explicit Field(std::chrono::milliseconds window) : window_(window) {}

  // The next piece of the line, in its order.
  void take(const Piece& piece);

  struct Seen {
    Bytes epc;
    int rssi = 0;   // of the latest reading, as the reader says it
    int polls = 0;  // that have read it
    Clock::time_point last;
  };

  // In the order of their EPCs. A tag is seen as soon as its report has come.
  std::vector<Seen> seen(Clock::time_point now);

  // Those that are done with, and the open one once it has read something.
  int polls(Clock::time_point now);

 private:
  struct Poll {
    Clock::time_point at;
    Bytes came;
    struct Tag {
      Bytes epc;
      int rssi;
      Clock::time_point at;
    };
    std::vector<Tag> tags;
  };

  static void read(Poll& poll, Clock::time_point now);
  void let_go(Clock::time_point now);

  const std::chrono::milliseconds window_;
  std::deque<Poll> polls_;
  std::optional<Poll> open_;
};

}  // namespace line
