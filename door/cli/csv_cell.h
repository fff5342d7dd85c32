// Cells of CSV files.
#pragma once

#include <string>

namespace achost {

// Append a cell as RFC 4180 has it. One that a spreadsheet would take for a formula has an apostrophe before it.
void append_cell(std::string& text, const std::string& content);

}  // namespace achost
