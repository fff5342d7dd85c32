// What the man page and the completions of achost tell beyond its options.
#pragma once

#include "cli/manual.h"

namespace achost {

cli::Manual manual();

}  // namespace achost
