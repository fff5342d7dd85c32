// How alike two words are.
#pragma once

#include <cstddef>
#include <string_view>

namespace refhost {

// The least number of characters to insert, delete or replace that makes one text the other.
std::size_t edit_distance(std::string_view a, std::string_view b);

}  // namespace refhost
