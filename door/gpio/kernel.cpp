#include "door/gpio/kernel.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

namespace achost::gpio {
namespace {

class Machine : public Kernel {
 public:
  std::vector<std::string> chips() override {
    std::vector<std::string> paths;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/dev", ignored)) {
      if (entry.path().filename().string().starts_with("gpiochip")) {
        paths.push_back(entry.path());
      }
    }
    std::ranges::sort(paths);
    return paths;
  }

  int open(const std::string& path) override { return answer(::open(path.c_str(), O_RDWR | O_CLOEXEC)); }

  int ioctl(int descriptor, unsigned long request, void* argument) noexcept override {
    return answer(::ioctl(descriptor, request, argument));
  }

 private:
  static int answer(int result) noexcept { return result < 0 ? -errno : result; }
};

}  // namespace

Kernel& Kernel::instance() {
  static Kernel& machine = *new Machine;
  return machine;
}

}  // namespace achost::gpio
