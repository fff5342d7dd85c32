// Lists of ranges of numbers, as settings hold them.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace refhost {

// The numbers of a text such as "0-10;26-51;60", ranges inclusive, in the order of the text. Nothing when the text is
// no such list: empty, a range that runs backwards, anything but digits between the separators, a number above 65535.
std::optional<std::vector<int>> parse_int_ranges(std::string_view text);

}  // namespace refhost
