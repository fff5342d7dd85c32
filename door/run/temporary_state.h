// A state directory for one run.
#pragma once

#include <filesystem>

namespace achost {

// Make an empty directory for this user alone, in the system's place for temporary files. Throws Failure.
std::filesystem::path make_temporary_state();

// Remove it with all that is in it, as far as that goes.
void remove_temporary_state(const std::filesystem::path& directory) noexcept;

}  // namespace achost
