// The steady clock in the hands of a test. Link fake_clock, and the objects under test read this clock.
#pragma once

#include <chrono>

namespace fake_clock {

// Stops the clock at a time far from its epoch; one thread at a time drives it.
void freeze();
void advance(std::chrono::nanoseconds by);
std::chrono::steady_clock::time_point now();
// Each reading moves the frozen clock on by so much.
void tick_per_reading(std::chrono::nanoseconds by);
// The real clock again.
void release();

}  // namespace fake_clock
