#include "private_etc.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

namespace {

// Whether what is mounted here would be seen outside.
bool anyMountIsShared() {
  std::stringstream mounts;
  mounts << std::ifstream("/proc/self/mountinfo").rdbuf();
  return mounts.str().find(" shared:") != std::string::npos;
}

// The call that failed; null when all went well.
const char* mountOverEtc() {
  // Without root's rights only a user namespace gives them, and only to a process of one thread.
  if (unshare(CLONE_NEWNS | (geteuid() == 0 ? 0 : CLONE_NEWUSER)) != 0) {
    return "unshare";
  }
  // Fails in a root directory that is no mount of its own, as chroot makes them.
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 && anyMountIsShared()) {
    return "mount --make-rprivate";
  }
  return mount("tmpfs", "/etc", "tmpfs", 0, nullptr) == 0 ? nullptr : "mount";
}

}  // namespace

PrivateEtc::PrivateEtc() {
  if (const auto* call = mountOverEtc(); call != nullptr) {
    refusal_ = std::string(call) + ": " + std::strerror(errno);
  }
}

PrivateEtc::~PrivateEtc() {
  if (refusal_.empty()) {
    umount("/etc");
  }
}
