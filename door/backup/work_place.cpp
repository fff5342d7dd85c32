#include "door/backup/work_place.h"

#include <stdlib.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace achost {

WorkPlace::WorkPlace() {
  std::string name = std::filesystem::temp_directory_path() / "achost-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) {
    throw std::filesystem::filesystem_error("cannot make", name, std::error_code(errno, std::generic_category()));
  }
  directory_ = name;
}

WorkPlace::~WorkPlace() {
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

}  // namespace achost
