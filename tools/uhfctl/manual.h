// What the man page and the completions of uhfctl tell beyond its options.
#pragma once

#include "cli/manual.h"

namespace uhfctl {

cli::Manual manual();

}  // namespace uhfctl
