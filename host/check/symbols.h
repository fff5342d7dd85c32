// What the process that loads the plug-in has to define.
#pragma once

#include <string>
#include <vector>

namespace hostcheck {

// The operations of the interface that are defined nowhere, as a programmer writes them. This file refers to them
// weakly, so that it can be loaded all the same, and say so.
const std::vector<std::string>& missing_symbols();

}  // namespace hostcheck
