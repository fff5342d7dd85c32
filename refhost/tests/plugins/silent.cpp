// A plug-in that reports to the watchdog once and then hangs.
#include <unistd.h>

#include <string>

#include "ac/plugin.h"
#include "ac/watchdog.h"

namespace {

int hang() {
  ac::watchdog::keep_alive("silent");
  for (;;) {
    pause();
  }
}

}  // namespace

extern "C" bool init(ac::Plugin* plugin, std::string* /*error*/) {
  plugin->set_name("silent");
  plugin->set_run(hang);
  return true;
}
