// A serial line without a system: the calls that the plug-in makes on it end here (the linker's --wrap sends them). For
// tests that need a hundred thousand transactions, each with its silences and none with a wait.
#pragma once

#include <chrono>
#include <cstddef>
#include <span>
#include <vector>

namespace memory_line {

inline constexpr const char* kPath = "memory line";

class Line {
 public:
  virtual ~Line() = default;

  // Takes what the plug-in sends; false when the line has hung up.
  virtual bool write(std::span<const unsigned char> bytes) = 0;

  // At least one byte and at most so many, or none when the time-out passes without one.
  virtual std::vector<unsigned char> read(std::size_t most, std::chrono::milliseconds timeout) = 0;
};

// From now on, whoever opens kPath gets this line, one at a time; null: nobody does. One thread only.
void connect(Line* line);

}  // namespace memory_line
