#include "device_link.h"

#include <stdexcept>
#include <system_error>

namespace uhfsim {

namespace fs = std::filesystem;

void DeviceLink::point_to(const std::string& device) {
  const std::lock_guard lock(mutex_);
  std::error_code error;
  const fs::file_status found = fs::symlink_status(link_, error);
  if (fs::is_symlink(found)) {
    fs::remove(link_, error);
  } else if (fs::exists(found)) {
    throw std::runtime_error(link_.string() + " is there and is no symbolic link; give another path to --link");
  }
  fs::create_symlink(device, link_, error);
  if (error) throw std::runtime_error("cannot make the link " + link_.string() + ": " + error.message());
  device_ = device;
}

DeviceLink::~DeviceLink() {
  std::error_code error;
  if (!device_.empty() && fs::read_symlink(link_, error) == device_) fs::remove(link_, error);
}

}  // namespace uhfsim
