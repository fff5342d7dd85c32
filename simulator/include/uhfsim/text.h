#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "uhfsim/bytes.h"

/// What it takes to read lines of words and to tell what is wrong with them.
namespace uhfsim {

/// The words of a line: what stands between blanks, up to a '#'. They point into the line.
std::vector<std::string_view> words_of(std::string_view line);

/// The text in double quotes, with bytes that do not print replaced by '?', so that an error stays one clear line.
std::string quoted(std::string_view text);

/// "a", "a or b", "a, b or c".
std::string alternatives(const std::vector<std::string_view>& names);

/// Upper-case hexadecimal, two digits a byte.
std::string hex_of(ByteView bytes);

}  // namespace uhfsim
