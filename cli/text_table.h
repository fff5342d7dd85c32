// Tables of text.
#pragma once

#include <string>
#include <vector>

namespace achost {

// The rows with each column but the last as wide as its widest cell, a line each. Widths count UTF-8 characters.
std::string aligned(const std::vector<std::vector<std::string>>& rows);

}  // namespace achost
