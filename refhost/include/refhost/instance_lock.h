// One host for each state directory.
#pragma once

#include <filesystem>

namespace refhost {

// Holds DIRECTORY/lock while it lives. The system frees it when the process ends, however it ends.
class InstanceLock {
 public:
  // Make the directory (mode 0700) when missing and take the lock. Throws ac::ac_exception, which names the process
  // that holds it.
  explicit InstanceLock(const std::filesystem::path& directory);
  ~InstanceLock();
  InstanceLock(const InstanceLock&) = delete;
  InstanceLock& operator=(const InstanceLock&) = delete;

 private:
  int fd_;
};

}  // namespace refhost
