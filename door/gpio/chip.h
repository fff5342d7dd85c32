// A GPIO chip and its lines.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "door/base/gpio_plan.h"
#include "door/gpio/kernel.h"

namespace achost::gpio {

// A descriptor that closes itself.
class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept : number_(other.number_) { other.number_ = -1; }
  Descriptor& operator=(Descriptor&& other) noexcept;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int number() const { return number_; }

 private:
  int number_;
};

// A line as the chip shows it to anybody.
struct LineState {
  unsigned offset = 0;
  std::string name;
  bool is_output = false;
  bool is_used = false;
  std::string consumer;  // who uses it, if that is told
};

// Failures are exceptions of ac::ac_exception that name what could not be had, and the way out.
class Chip {
 public:
  // By path, name or label.
  Chip(Kernel& kernel, const std::string& wanted);

  // "gpiochip0 (pinctrl)".
  std::string description() const { return name_ + " (" + label_ + ")"; }

  // The line's number here; setting: what to call it.
  unsigned offset_of(const WiredLine& line, const std::string& setting) const;

  // Request the line for this process, inputs with both edges; an output takes the level.
  Descriptor request(const PlannedLine& line, int level) const;

  // All lines.
  std::vector<LineState> survey() const;

  // The level of one of ours while nobody has requested it. On many chips a request takes a line from what else the pin
  // does, so that others are not looked at.
  std::optional<int> peek(unsigned offset) const;

 private:
  LineState state_of(unsigned offset) const;

  Kernel& kernel_;
  Descriptor chip_;
  std::string name_;
  std::string label_;
  unsigned lines_ = 0;
};

// The level of a requested line: 0 or 1, or a negative errno.
int level_of(Kernel& kernel, int line) noexcept;

// Give it to an output; 0, or a negative errno.
int set_level(Kernel& kernel, int line, int level) noexcept;

// All chips, "gpiochip0 (pinctrl), gpiochip1 (expander)".
std::string chips_text(Kernel& kernel);

}  // namespace achost::gpio
