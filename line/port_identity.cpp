#include "line/port_identity.h"

#include <fstream>
#include <system_error>

namespace line {
namespace {

namespace fs = std::filesystem;

std::string first_line(const fs::path& file) {
  std::string text;
  std::getline(std::ifstream(file), text);
  return text;
}

// The identity of what the kernel calls that, from its device and the directories above it: the interface says its
// number, the device above it the rest.
std::optional<std::string> identity_of_terminal(const fs::path& terminal) {
  std::error_code failure;
  const fs::path device = fs::canonical(terminal / "device", failure);
  if (failure) {
    return std::nullopt;
  }
  std::string interface;
  fs::path place;
  for (fs::path at = device; at.has_relative_path(); at = at.parent_path()) {
    if (interface.empty() && fs::exists(at / "bInterfaceNumber", failure)) {
      interface = first_line(at / "bInterfaceNumber");
      place = at.filename();
    }
    if (fs::exists(at / "idVendor", failure)) {
      const std::string serial = first_line(at / "serial");
      return "usb " + first_line(at / "idVendor") + ":" + first_line(at / "idProduct") +
             (serial.empty() ? " at " + place.string() : " number " + serial + " interface " + interface);
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> identity_of(const fs::path& port, const fs::path& terminals) {
  std::error_code failure;
  const fs::path device = fs::canonical(port, failure);  // behind /dev/serial/by-id is a link
  return failure ? std::nullopt : identity_of_terminal(terminals / device.filename());
}

std::optional<fs::path> port_with(const std::string& identity, const fs::path& terminals) {
  std::error_code failure;
  for (fs::directory_iterator entry(terminals, failure), end; !failure && entry != end; entry.increment(failure)) {
    if (identity_of_terminal(entry->path()) == identity) {
      return "/dev" / entry->path().filename();
    }
  }
  return std::nullopt;
}

}  // namespace line
