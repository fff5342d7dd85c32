# Writes OUTPUT, a header with the bytes of INPUT as embedded::NAME.
file(READ ${INPUT} bytes HEX)
string(REGEX REPLACE "(..)" "\\\\x\\1" text "${bytes}")
string(LENGTH "${bytes}" digits)
math(EXPR size "${digits} / 2")
file(WRITE ${OUTPUT} "#pragma once

#include <string_view>

namespace embedded {

inline constexpr std::string_view ${NAME}{\"${text}\", ${size}};

}  // namespace embedded
")
