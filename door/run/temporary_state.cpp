#include "door/run/temporary_state.h"

#include <stdlib.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "door/base/failure.h"

namespace achost {

TemporaryState::TemporaryState() {
  std::string name = std::filesystem::temp_directory_path() / "achost-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) {
    throw Failure(kFailed, "cannot make a temporary directory " + name + ": " + std::strerror(errno));
  }
  directory_ = name;
}

TemporaryState::~TemporaryState() { remove_temporary_state(directory_); }

void remove_temporary_state(const std::filesystem::path& directory) noexcept {
  std::error_code ignored;
  std::filesystem::remove_all(directory, ignored);
}

}  // namespace achost
