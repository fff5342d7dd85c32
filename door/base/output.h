// Standard output.
#pragma once

#include <string>

namespace achost {

// Write the whole text to standard output, for a command that prints and ends: false when nobody reads any more (`|
// head`), who has seen enough. Throws Failure when it cannot be written for another reason.
bool print(const std::string& text);

// Whether standard output takes colours.
bool wants_colour();

}  // namespace achost
