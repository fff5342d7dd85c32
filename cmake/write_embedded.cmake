# Writes OUTPUT, a header with the text of INPUT as embedded::NAME.
file(READ ${INPUT} text)
file(WRITE ${OUTPUT} "#pragma once

#include <string_view>

namespace embedded {

inline constexpr std::string_view ${NAME} = R\"embedded(${text})embedded\";

}  // namespace embedded
")
