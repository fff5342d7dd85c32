// The virtual GPIO lines of the device.
#pragma once

#include <array>
#include <atomic>

#include "ac/message.h"
#include "refhost/subscriber.h"

namespace achost {

// Lines 0 to 255, all 0 at the start, as a user of the bus:
//   "gpio_current_state" {int "gpio"}: answered with int "value", 0 or 1;
//   "gpio_set_value" {int "gpio", int "value"}: sets the line, to 1 when the value is not 0; on a change it sends
//   "gpio_notified" {int "gpio", int "value"}.
// A message without its fields, or of a line out of range, is logged and neither answered nor obeyed.
class GpioService {
 public:
  GpioService();

  static constexpr int kLines = 256;

  // The levels of all lines. Any thread may call.
  std::array<int, kLines> levels() const;

 private:
  void answer_current_state(const ac::Message& message) const;
  void set_value(const ac::Message& message);

  std::array<std::atomic<int>, kLines> values_{};  // written by the subscriber's delivery thread only
  refhost::Subscriber subscriber_;                 // last: it stops using the lines before they go
};

}  // namespace achost
