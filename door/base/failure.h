// How achost ends.
#pragma once

#include "cli/failure.h"

namespace achost {

using cli::Failure;
using cli::Status;
using enum cli::Status;

}  // namespace achost
