// The GPIO lines of the device.
#pragma once

#include <array>
#include <atomic>
#include <memory>

#include "ac/message.h"
#include "door/gpio/lines.h"
#include "refhost/subscriber.h"

namespace achost {

// Lines 0 to 260, virtual ones and all 0 at the start, as a user of the bus:
//   "gpio_current_state" {int "gpio"}: answered with int "value", 0 or 1;
//   "gpio_set_value" {int "gpio", int "value"}: sets the line, to 1 when the value is not 0, unless a wire does that.
// A change of a line, however it came about, is told with int64 "at", ns of CLOCK_MONOTONIC:
//   "sec_box_rex_changed" {int "active", int64 "at"} of the exit button's: active is 0 while it is pressed;
//   "gpio_notified" {int "gpio", int "value", int64 "at"} of any other.
// A message without its fields, or of a line out of range, is logged and neither answered nor obeyed.
class GpioService {
 public:
  GpioService();

  static constexpr int kLines = kGpioLines;

  // From now on the lines are these. Once, before anything moves.
  void use(std::unique_ptr<gpio::Lines> lines);

  // The levels of all lines. Any thread may call.
  std::array<int, kLines> levels() const { return lines_.load()->levels(); }

  // The lines, for what else they can. Any thread may call.
  gpio::Lines& lines() const { return *lines_.load(); }

 private:
  void answer_current_state(const ac::Message& message) const;
  void set_value(const ac::Message& message);

  gpio::VirtualLines virtual_;
  std::unique_ptr<gpio::Lines> given_;
  std::atomic<gpio::Lines*> lines_;
  refhost::Subscriber subscriber_;  // last: it stops using the lines before they go
};

}  // namespace achost
