// A plug-in that needs what this host does not have.
#include <string>

#include "ac/plugin.h"

namespace ac::future {
void operation(const std::string& text, int number);
}

extern "C" bool init(ac::Plugin* /*plugin*/, std::string* /*error*/) {
  ac::future::operation("", 1);
  return true;
}
