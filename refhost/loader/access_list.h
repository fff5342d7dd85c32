// Who may write a file: its mode, or its POSIX access control list where it has one.
#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "loader/writers.h"

namespace refhost {

// Besides its owner, root, and root's group as root made it: "user 1000", "group 1000", "everyone". Throws
// std::system_error when its list cannot be read.
std::vector<std::string> writers_by_mode_or_list(const Descriptor& file, const struct stat& status);

}  // namespace refhost
