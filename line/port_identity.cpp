#include "line/port_identity.h"

#include <fcntl.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <fstream>
#include <system_error>

#include "line/terminal.h"

namespace line {
namespace {

namespace fs = std::filesystem;

std::string first_line(const fs::path& file) {
  std::string text;
  std::getline(std::ifstream(file), text);
  return text;
}

struct UsbTerminal {
  fs::path adapter;       // the directory of the USB device
  std::string interface;  // its number
  std::string place;      // "1-2:1.0"
};

// The USB device behind what the kernel calls that terminal: the interface stands above the terminal's device, and the
// adapter above that.
std::optional<UsbTerminal> usb_terminal(const fs::path& terminal) {
  std::error_code failure;
  const fs::path device = fs::canonical(terminal / "device", failure);
  UsbTerminal found;
  for (fs::path at = device; !failure && at.has_relative_path(); at = at.parent_path()) {
    if (found.interface.empty() && fs::exists(at / "bInterfaceNumber", failure)) {
      found.interface = first_line(at / "bInterfaceNumber");
      found.place = at.filename();
    }
    if (fs::exists(at / "idVendor", failure)) {
      found.adapter = at;
      return found;
    }
  }
  return std::nullopt;
}

std::optional<std::string> identity_of_terminal(const fs::path& terminal) {
  const auto usb = usb_terminal(terminal);
  if (!usb.has_value()) {
    return std::nullopt;
  }
  const std::string serial = first_line(usb->adapter / "serial");
  return "usb " + first_line(usb->adapter / "idVendor") + ":" + first_line(usb->adapter / "idProduct") +
         (serial.empty() ? " at " + usb->place : " number " + serial + " interface " + usb->interface);
}

fs::path terminal_of(const fs::path& port, const fs::path& terminals) {
  std::error_code failure;
  return terminals / fs::canonical(port, failure).filename();  // behind /dev/serial/by-id is a link
}

}  // namespace

std::optional<std::string> identity_of(const fs::path& port, const fs::path& terminals) {
  return identity_of_terminal(terminal_of(port, terminals));
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

std::optional<fs::path> usb_device_of(const fs::path& port, const fs::path& terminals) {
  const auto usb = usb_terminal(terminal_of(port, terminals));
  if (!usb.has_value()) {
    return std::nullopt;
  }
  const auto padded = [](std::string number) {
    return std::string(3 - std::min<std::size_t>(3, number.size()), '0') + number;
  };
  return fs::path("/dev/bus/usb") / padded(first_line(usb->adapter / "busnum")) /
         padded(first_line(usb->adapter / "devnum"));
}

bool reset_usb_device(const fs::path& device) {
  const Descriptor usb(open(device.c_str(), O_WRONLY | O_CLOEXEC));
  return usb.get() >= 0 && ioctl(usb.get(), USBDEVFS_RESET, 0) == 0;
}

}  // namespace line
