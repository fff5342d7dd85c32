// The USB adapter that a port is: finding it again when its name has changed, and resetting it.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace line {

// Where the kernel tells of its terminals. Another one in tests.
inline const std::filesystem::path kTerminals = "/sys/class/tty";

// What tells the adapter at a port from others: vendor, product, serial number and interface of a USB adapter, or where
// it is plugged in when it has no serial number. Nothing for a port without such: a port of the board, a
// pseudo-terminal.
std::optional<std::string> identity_of(const std::filesystem::path& port,
                                       const std::filesystem::path& terminals = kTerminals);

// The device of the adapter with that identity, "/dev/ttyUSB1", if it is plugged in.
std::optional<std::filesystem::path> port_with(const std::string& identity,
                                               const std::filesystem::path& terminals = kTerminals);

// The file of the USB adapter that a port belongs to, "/dev/bus/usb/001/004"; nothing for another port.
std::optional<std::filesystem::path> usb_device_of(const std::filesystem::path& port,
                                                   const std::filesystem::path& terminals = kTerminals);

// The kernel's reset, as if it were pulled out and put back. False when the device cannot be opened or does not come
// back from it.
bool reset_usb_device(const std::filesystem::path& device);

}  // namespace line
