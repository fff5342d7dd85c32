// What a test holds up in a program that it has started.
#pragma once

#include <array>
#include <atomic>

// In memory that the test shares with the library which it loads into the program (hold_ups.cpp): a file that the
// environment names in HOLD_UPS. Written by the test.
struct HoldUps {
  std::atomic<bool> disk;       // calls that need the disk wait, for files whose path begins with:
  std::array<char, 4095> path;  // set before disk
  std::atomic<bool> memory;     // no memory is given
};
