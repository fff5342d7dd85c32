// A plug-in whose main function returns.
#include <string>

#include "ac/plugin.h"

extern "C" bool init(ac::Plugin* plugin, std::string* /*error*/) {
  plugin->set_name("returns");
  plugin->set_run([] { return 5; });
  return true;
}
