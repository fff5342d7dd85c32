// What an examination of a store has found.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace refhost {

struct StoreReport {
  std::string store;                     // one word: "audit"
  std::string content;                   // for a person: "1,234 records, numbers 1 to 1,234"
  std::vector<std::string> faults = {};  // a line each; none: it is whole
};

// "1,234".
std::string grouped(std::int64_t number);

// "1 record", "1,234 records".
std::string counted(std::int64_t number, const std::string& noun);

}  // namespace refhost
