#pragma once

#include <filesystem>
#include <string>

namespace uhfsim {

/// A symbolic link to the device, under a name that stays the same from run to run; gone with the object.
class DeviceLink {
 public:
  /// Makes the link; one that is there already is replaced. Throws std::runtime_error with one line when something
  /// else has that name or the link cannot be made.
  DeviceLink(const std::string& link, const std::string& device);

  /// Removes the link, unless somebody has replaced it meanwhile.
  ~DeviceLink();

  DeviceLink(const DeviceLink&) = delete;
  DeviceLink& operator=(const DeviceLink&) = delete;

 private:
  const std::filesystem::path link_;
  const std::filesystem::path device_;
};

}  // namespace uhfsim
