// A plug-in that does not start and says why.
#include <string>

#include "ac/plugin.h"

extern "C" bool init(ac::Plugin* plugin, std::string* error) {
  plugin->set_name("init_false");
  *error += "Error opening Serial Port: No such file or directory";
  return false;
}
