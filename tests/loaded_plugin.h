// The built uhf.so (UHF_SO) and what a host finds in it.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "ac/plugin.h"

namespace second_host {

using InitEntry = bool (*)(ac::Plugin*, std::string*);
using RunEntry = int (*)();

// Loaded once for all tests: it is never unloaded, as its threads do not stop.
inline void* plugin() {
  static void* const handle = dlopen(UHF_SO, RTLD_NOW | RTLD_LOCAL);
  EXPECT_NE(handle, nullptr) << dlerror();
  return handle;
}

template <class T>
T& global(const char* name) {
  auto* const address = dlsym(plugin(), name);
  EXPECT_NE(address, nullptr) << name;
  return *static_cast<T*>(address);
}

template <class Entry>
Entry entry(const char* name) {
  auto* const address = dlsym(plugin(), name);
  EXPECT_NE(address, nullptr) << name;
  return reinterpret_cast<Entry>(address);
}

}  // namespace second_host
