// Texts from outside.
#pragma once

#include <cstddef>
#include <string_view>

namespace achost {

// Where the text stops being UTF-8 (RFC 3629: no surrogates, nothing overlong); its size when all of it is.
std::size_t utf8_end(std::string_view text);

}  // namespace achost
