// What achost-fleet's man page and completions tell beyond its commands and options.
#pragma once

#include "cli/manual.h"

namespace fleet {

cli::Manual manual();

}  // namespace fleet
