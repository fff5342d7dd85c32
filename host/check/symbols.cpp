#include "symbols.h"

#include <cxxabi.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <utility>

// Made from the list of what uhf.so needs: WANTED(number, symbol) for each.
#define WANTED(number, symbol) extern "C" void wanted_##number() __asm__(#symbol);
#include "wanted_symbols.h"
#undef WANTED

namespace hostcheck {
namespace {

std::string demangled(const char* symbol) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> name(abi::__cxa_demangle(symbol, nullptr, nullptr, &status),
                                                         &std::free);
  return name == nullptr ? symbol : name.get();
}

std::vector<std::string> find_missing() {
  struct Wanted {
    void (*address)();
    const char* symbol;
  };
  const auto all = std::to_array<Wanted>({
#define WANTED(number, symbol) {&wanted_##number, #symbol},
#include "wanted_symbols.h"
#undef WANTED
  });
  std::vector<std::string> missing;
  for (const auto& wanted : all) {
    // Read again: the compiler takes it for certain that a function has an address.
    void (*const volatile address)() = wanted.address;
    if (address == nullptr) {
      missing.push_back(demangled(wanted.symbol));
    }
  }
  return missing;
}

}  // namespace

const std::vector<std::string>& missing_symbols() {
  static const auto& missing = *new std::vector<std::string>(find_missing());
  return missing;
}

}  // namespace hostcheck
