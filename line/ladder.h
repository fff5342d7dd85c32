// What is tried, and when, to bring a silent reader back.
#pragma once

#include <array>
#include <chrono>
#include <optional>
#include <string>

#include "line/bytes.h"

namespace line {

enum class Rung {
  drop_waiting,  // what waits on the line
  reopen,        // the port
  reset,         // the reader, by hardware
  give_up,       // to the supervisor
};
inline constexpr std::size_t kRungs = 4;

// "the port is opened again": for a person.
const char* name_of(Rung rung);

// One rung after the other, each with its time to work; then reopening and resetting by turns, more and more rarely,
// until it gives up. The time is a parameter; one thread uses it.
class Ladder {
 public:
  // can_reset: there is something that resets the reader. give_up_after: 0 is never.
  Ladder(bool can_reset, std::chrono::milliseconds give_up_after)
      : can_reset_(can_reset), give_up_after_(give_up_after) {}

  // The reader has fallen silent, or its port has gone.
  void begin(Clock::time_point now);

  // It is back.
  void end() { begun_.reset(); }

  bool is_begun() const { return begun_.has_value(); }

  // The rung that is due, once. Each is counted. Without a port there is none but the last.
  std::optional<Rung> due(Clock::time_point now, bool has_port);

  // How often each was taken since the beginning, by Rung.
  const std::array<int, kRungs>& taken() const { return taken_; }

 private:
  std::optional<Rung> take(Clock::time_point now, Rung rung, std::chrono::milliseconds time_to_work);

  const bool can_reset_;
  const std::chrono::milliseconds give_up_after_;
  std::optional<Clock::time_point> begun_;
  Clock::time_point next_at_;
  Rung next_ = Rung::drop_waiting;
  std::chrono::milliseconds patience_{};
  bool gave_up_ = false;
  std::array<int, kRungs> taken_{};
};

}  // namespace line
