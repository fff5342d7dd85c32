#include "device_link.h"

#include <stdexcept>
#include <system_error>

namespace uhfsim {

namespace fs = std::filesystem;

DeviceLink::DeviceLink(const std::string& link, const std::string& device) : link_(link), device_(device) {
  std::error_code error;
  const fs::file_status found = fs::symlink_status(link_, error);
  if (fs::is_symlink(found)) {
    fs::remove(link_, error);
  } else if (fs::exists(found)) {
    throw std::runtime_error(link + " is there and is no symbolic link; give another path to --link");
  }
  fs::create_symlink(device_, link_, error);
  if (error) throw std::runtime_error("cannot make the link " + link + ": " + error.message());
}

DeviceLink::~DeviceLink() {
  std::error_code error;
  if (fs::read_symlink(link_, error) == device_) fs::remove(link_, error);
}

}  // namespace uhfsim
