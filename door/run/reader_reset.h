// What resets a reader by hardware.
#pragma once

#include <functional>
#include <string>

namespace achost {

// The GPIO line of the reader's reset input when there is one (its number on the bus), else the kernel's reset of the
// USB adapter that the port is; empty when neither is to be had. What it returns is called on the line's thread, false
// when it failed.
std::function<bool()> reader_reset(const std::string& port, int gpio_line);

// The line's thread has done its work: the watchdog hears of it.
void report_line_alive();

}  // namespace achost
