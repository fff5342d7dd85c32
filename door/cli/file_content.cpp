#include "door/cli/file_content.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "door/base/failure.h"

namespace achost {

std::string content_of(const std::string& file) {
  std::ostringstream content;
  if (file == "-") {
    content << std::cin.rdbuf();
    return content.str();
  }
  if (std::filesystem::is_directory(file)) {
    throw Failure(kUsage, "cannot read " + file + ": " + std::strerror(EISDIR));
  }
  std::ifstream stream(file);
  content << stream.rdbuf();
  if (!stream) {
    throw Failure(kUsage, "cannot read " + file + ": " + std::strerror(errno));
  }
  return content.str();
}

std::string name_of_input(const std::string& file) { return file == "-" ? "standard input" : file; }

}  // namespace achost
