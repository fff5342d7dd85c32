// What a plug-in says of itself during its init().
#pragma once

#include <string>
#include <vector>

#include "ac/plugin.h"

struct ac::Plugin::Impl {
  std::string name;
  int (*run)() = nullptr;
  std::vector<ac::MessageListener> listeners;

  static Impl& of(ac::Plugin& plugin) { return *plugin.impl_; }
};
