// A plug-in whose init throws what is no std::exception.
#include <string>

#include "ac/plugin.h"

extern "C" bool init(ac::Plugin* /*plugin*/, std::string* /*error*/) { throw 1; }
