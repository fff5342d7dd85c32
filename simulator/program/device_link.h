#pragma once

#include <filesystem>
#include <mutex>
#include <string>

namespace uhfsim {

/// A symbolic link to the device, under a name that stays the same from run to run; gone with the object. Any thread
/// may call any operation.
class DeviceLink {
 public:
  /// The name of the link, which is not made yet.
  explicit DeviceLink(const std::string& link) : link_(link) {}

  /// Removes the link, unless somebody has replaced it meanwhile.
  ~DeviceLink();

  DeviceLink(const DeviceLink&) = delete;
  DeviceLink& operator=(const DeviceLink&) = delete;

  /// Makes the link; one that is left over is replaced. Throws std::runtime_error with one line when the link that is
  /// there leads to another simulator's device or a real one, something else has that name, or it cannot be made.
  void point_to(const std::string& device);

 private:
  const std::filesystem::path link_;
  std::mutex mutex_;  // guards device_, and the link while it is changed
  std::filesystem::path device_;
};

}  // namespace uhfsim
