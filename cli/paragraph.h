// Text in the width of a terminal.
#pragma once

#include <cstddef>
#include <string>

namespace cli {

// The text's words in lines of at most width, where a word is not longer by itself. The first line begins at column
// indent, the others are indented to it.
std::string wrapped(const std::string& text, std::size_t indent, std::size_t width);

// How many columns the terminal at standard output has; 0 when there is none.
std::size_t terminal_width();

}  // namespace cli
