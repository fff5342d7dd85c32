// Who else can change what stands at a path.
#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace refhost {

// Besides root and this process' user, everyone who can write the file or a directory of its path, or put another one
// in its place: "user 1000", "group 1000" or "everyone", each with the first place where. The path is absolute and
// exists; both the path as it is written and what its symbolic links lead to count. Throws
// std::filesystem::filesystem_error.
std::map<std::string, std::string> other_writers(const std::filesystem::path& path);

}  // namespace refhost
