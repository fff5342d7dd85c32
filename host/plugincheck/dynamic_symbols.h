// What a shared object exports and needs, as its file says; it need not be loadable.
#pragma once

#include <string>
#include <vector>

namespace plugincheck {

struct DynamicSymbols {
  std::vector<std::string> exports;    // that are neither weak nor shared between libraries
  std::vector<std::string> libraries;  // that are loaded with it
};

// Throws std::runtime_error, with one line, when the file is no shared object for this machine.
DynamicSymbols dynamic_symbols_of(const std::string& file);

// As a programmer writes it.
std::string demangled(const std::string& symbol);

}  // namespace plugincheck
