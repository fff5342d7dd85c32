// The plug-in's entry.
#pragma once

#include <string>

#include "ac/plugin.h"
#include "globals.h"

// Called once by the host, before run(): names the plug-in, reads its settings, opens the reader and sets its radio up.
// Returns true, or false with the reason appended to error; nothing after the step that failed is done then.
extern "C" UHF_EXPORT bool init(ac::Plugin* plugin, std::string* error);
