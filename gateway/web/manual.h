// What achost-web's man page and completions tell beyond its commands and options.
#pragma once

#include "cli/manual.h"

namespace web {

cli::Manual manual();

}  // namespace web
