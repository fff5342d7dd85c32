// GPIO chips that are none, for the calls of the kernel's character device.
#pragma once

#include <linux/gpio.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "door/gpio/kernel.h"

namespace achost::test {

// What <linux/gpio.h> and the kernel's documentation of it promise: names, levels, edges with their times and numbers,
// a buffer of 16 edges that loses the oldest, lines that one at a time may have, requests that are refused as a whole
// when a flag does not belong there, and a chip that goes while it is used. Descriptors are pipes, so that they are
// polled, read and closed as the real ones are; whoever closes one gives the line back, which keeps its level.
class FakeGpio : public gpio::Kernel {
 public:
  struct Chip {
    std::string name;
    std::string label;
    std::vector<std::string> lines;  // their names
  };

  explicit FakeGpio(std::vector<Chip> chips);
  ~FakeGpio() override;

  std::vector<std::string> chips() override;
  int open(const std::string& path) override;
  int ioctl(int descriptor, unsigned long request, void* argument) noexcept override;

  // The outside world. Levels are voltages: 1 is high.
  void drive(const std::string& line, int level, std::int64_t at = 0);
  int voltage(const std::string& line);
  void take(const std::string& line, const std::string& consumer);  // somebody else has it from now on
  void vanish(const std::string& chip);
  void come_back(const std::string& chip);
  void fail_writes(bool fail);
  // The edges wait in the kernel until they are let go, as for a process that does not run.
  void hold_edges(const std::string& line, bool hold);

  gpio_v2_line_request request_of(const std::string& line);  // what the one who has it asked for

 private:
  struct Line {
    std::string name;
    int voltage = 0;
    std::string consumer;
    int reader = -1;  // the descriptor that the requester has
    int writer = -1;  // the other end
    bool is_held = false;
    std::uint32_t edges = 0;
    std::vector<gpio_v2_line_event> waiting;
    gpio_v2_line_request request{};
  };
  struct Board {
    Chip chip;
    bool is_there = true;
    std::vector<Line> lines;
  };

  bool is_taken(Line& line);
  static bool is_active_low(const Line& line);
  Line& line_called(const std::string& name);
  Board* board_of(int descriptor);
  int info(const Board& board, gpio_v2_line_info& info);
  int request(Board& board, gpio_v2_line_request& request);
  int values(int descriptor, unsigned long request, gpio_v2_line_values& values);
  void flush(Line& line);

  std::mutex mutex_;  // guards all below
  std::vector<Board> boards_;
  std::map<int, std::size_t> opened_;  // descriptors of chips
  bool writes_fail_ = false;
};

}  // namespace achost::test
