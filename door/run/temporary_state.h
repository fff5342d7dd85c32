// A state directory for one run.
#pragma once

#include <filesystem>

namespace achost {

// Remove it with all that is in it, as far as that goes.
void remove_temporary_state(const std::filesystem::path& directory) noexcept;

// An empty directory for this user alone, in the system's place for temporary files, which goes with the object. A run
// that ends its process, where no destructor runs, removes it itself.
class TemporaryState {
 public:
  // Throws Failure.
  TemporaryState();
  ~TemporaryState();
  TemporaryState(const TemporaryState&) = delete;
  TemporaryState& operator=(const TemporaryState&) = delete;

  const std::filesystem::path& directory() const { return directory_; }

 private:
  std::filesystem::path directory_;
};

}  // namespace achost
