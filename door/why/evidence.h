// What the journal knows about a time.
#pragma once

#include <filesystem>

#include "door/why/explain.h"

namespace achost::why {

// Of the journal of a state directory, also while a daemon writes there. A sighting that cannot be read is left out.
// Throws ac::ac_exception when the journal cannot be read.
Evidence evidence_of(const std::filesystem::path& state, const Question& question);

}  // namespace achost::why
