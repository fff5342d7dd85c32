// What achost-mqtt's man page and completions tell beyond its commands and options.
#pragma once

#include "cli/manual.h"

namespace mqtt {

cli::Manual manual();

}  // namespace mqtt
