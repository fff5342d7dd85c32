#include "door/run/reader_reset.h"

#include <chrono>
#include <thread>

#include "ac/watchdog.h"
#include "line/port_identity.h"
#include "refhost/send.h"

namespace achost {
namespace {

// Long enough for any module's reset input.
constexpr std::chrono::milliseconds kPulse{100};

}  // namespace

std::function<bool()> reader_reset(const std::string& port, int gpio_line) {
  if (gpio_line >= 0) {
    return [gpio_line] {
      refhost::send("gpio_set_value", {{"gpio", gpio_line}, {"value", 1}});
      std::this_thread::sleep_for(kPulse);
      refhost::send("gpio_set_value", {{"gpio", gpio_line}, {"value", 0}});
      return true;
    };
  }
  if (line::usb_device_of(port).has_value()) {
    return [port] {
      const auto device = line::usb_device_of(port);
      return device.has_value() && line::reset_usb_device(*device);
    };
  }
  return nullptr;
}

void report_line_alive() { ac::watchdog::keep_alive("line"); }

}  // namespace achost
