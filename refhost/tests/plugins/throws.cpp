// A plug-in that ends by an exception: of its main function, or of a thread of its own when the setting trig_gpio is 9.
#include <string>
#include <thread>

#include "ac/config_util.h"
#include "ac/exception.h"
#include "ac/plugin.h"

namespace {

[[noreturn]] int fail() { throw ac::ac_exception("Empty reply; gpio: 9", true); }

int fail_on_a_thread() {
  std::thread(fail).join();
  return 0;
}

}  // namespace

extern "C" bool init(ac::Plugin* plugin, std::string* /*error*/) {
  plugin->set_name("throws");
  plugin->set_run(ac::config_util::get_int("uhf", "trig_gpio", false) == 9 ? fail_on_a_thread : fail);
  return true;
}
