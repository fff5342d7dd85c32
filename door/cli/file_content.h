// Files that a command reads because a person named them.
#pragma once

#include <string>

namespace achost {

// All of the file, or of standard input when it is "-". Throws Failure (kUsage), which names it.
std::string content_of(const std::string& file);

// For messages.
std::string name_of_input(const std::string& file);

}  // namespace achost
