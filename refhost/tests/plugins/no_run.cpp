// A plug-in that starts but has no main function.
#include <string>

#include "ac/plugin.h"

extern "C" bool init(ac::Plugin* plugin, std::string* /*error*/) {
  plugin->set_name("no_run");
  return true;
}
