// One host for each state directory.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>

#include "ac/exception.h"

namespace refhost {

// Another process holds the lock, which what() names.
class DirectoryInUse : public ac::ac_exception {
 public:
  explicit DirectoryInUse(const std::string& text) : ac_exception(text, true) {}
};

// Holds DIRECTORY/lock while it lives. The system frees it when the process ends, however it ends.
class InstanceLock {
 public:
  // Make the directory (mode 0700) when missing and take the lock, for which it waits so long. Throws DirectoryInUse,
  // or ac::ac_exception when it cannot be had at all.
  explicit InstanceLock(const std::filesystem::path& directory,
                        std::chrono::milliseconds patience = std::chrono::milliseconds(0));
  ~InstanceLock();
  InstanceLock(const InstanceLock&) = delete;
  InstanceLock& operator=(const InstanceLock&) = delete;

 private:
  int fd_;
};

}  // namespace refhost
