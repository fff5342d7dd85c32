// What the kernel does for GPIO lines: the calls of its character device, interface v2.
#pragma once

#include <string>
#include <vector>

namespace achost::gpio {

// As the calls of the same names, with a negative errno in place of errno; a line's descriptor is polled, read and
// closed as any other. Any thread may call.
class Kernel {
 public:
  virtual ~Kernel() = default;

  // The paths of the chips.
  virtual std::vector<std::string> chips() = 0;
  virtual int open(const std::string& path) = 0;
  virtual int ioctl(int descriptor, unsigned long request, void* argument) noexcept = 0;

  // The machine's. Never destroyed.
  static Kernel& instance();
};

}  // namespace achost::gpio
