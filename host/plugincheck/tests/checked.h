// plugincheck as a process of its own, and what it reports.
#pragma once

#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "door/tests/process.h"

namespace plugin_check_test {

using achost::test::Result;

using Numbers = std::set<std::string>;

inline Result check(std::vector<std::string> arguments) {
  return achost::test::run_program(PLUGINCHECK, std::move(arguments));
}

inline std::string plugin(const std::string& name) { return PLUGINS "/" + name + ".so"; }

// Those that the report names, as broken or as not examined.
inline Numbers clauses_in(const std::string& report) {
  std::istringstream lines(report);
  Numbers numbers;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string program;
    std::string what;
    std::string number;
    if (words >> program >> what >> number && what == "clause") {
      numbers.insert(number);  // "2.1:" is broken
    }
  }
  return numbers;
}

inline Numbers broken_in(const Result& result) {
  Numbers broken;
  for (const auto& number : clauses_in(result.err)) {
    if (number.ends_with(':')) {
      broken.insert(number.substr(0, number.size() - 1));
    }
  }
  return broken;
}

}  // namespace plugin_check_test
