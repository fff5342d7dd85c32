// What init() gets, on pages of its own that nobody may touch any more once it has returned.
#pragma once

#include <string>

#include "ac/plugin.h"

namespace plugincheck {

class Guarded {
 public:
  Guarded();

  ac::Plugin* plugin() const { return plugin_; }
  std::string* text() const { return text_; }

  // From now on whoever touches them ends the process, which is noted. Never to be used again.
  void take_back();

 private:
  void* page_;
  ac::Plugin* plugin_;
  std::string* text_;
};

}  // namespace plugincheck
