#include "refhost/store_report.h"

namespace refhost {

std::string counted(std::int64_t number, const std::string& noun) {
  return grouped(number) + " " + noun + (number == 1 ? "" : "s");
}

std::string grouped(std::int64_t number) {
  constexpr int kGroup = 3;
  std::string digits = std::to_string(number);
  for (auto at = static_cast<int>(digits.size()) - kGroup; at > (number < 0 ? 1 : 0); at -= kGroup) {
    digits.insert(static_cast<std::size_t>(at), 1, ',');
  }
  return digits;
}

}  // namespace refhost
