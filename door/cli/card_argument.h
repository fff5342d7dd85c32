// Cards as people give them.
#pragma once

#include <cstdint>
#include <string>

namespace achost {

// "33" or "0x21". Throws Failure (kUsage).
std::uint64_t asked_card(const std::string& text);

}  // namespace achost
