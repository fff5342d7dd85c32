// Finding an adapter again whose name has changed.
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

}  // namespace line
