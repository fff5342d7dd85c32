// Texts from outside.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace achost {

// Where the text stops being UTF-8 (RFC 3629: no surrogates, nothing overlong); its size when all of it is.
std::size_t utf8_end(std::string_view text);

// Without blanks and tabs at either end.
std::string_view without_blanks(std::string_view text);

// For a message: in quotes, its control characters escaped.
std::string in_quotes(std::string_view text);

}  // namespace achost
