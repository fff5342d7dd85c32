// A directory to work in.
#pragma once

#include <filesystem>

namespace achost {

// A new one below $TMPDIR or /tmp, for its user alone, which goes with this. Throws std::filesystem::filesystem_error.
class WorkPlace {
 public:
  WorkPlace();
  ~WorkPlace();
  WorkPlace(const WorkPlace&) = delete;
  WorkPlace& operator=(const WorkPlace&) = delete;

  const std::filesystem::path& directory() const { return directory_; }

 private:
  std::filesystem::path directory_;
};

}  // namespace achost
