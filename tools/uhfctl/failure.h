// How uhfctl ends.
#pragma once

#include "cli/failure.h"

namespace uhfctl {

using cli::Failure;
using cli::Status;
using enum cli::Status;

}  // namespace uhfctl
