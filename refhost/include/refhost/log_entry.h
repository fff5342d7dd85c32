// How an entry of the log is written.
#pragma once

#include <string>
#include <string_view>

namespace refhost::log {

// The text with its control characters as \n, \r, \t or \xHH and a backslash as \\; other bytes, UTF-8 among them,
// stay.
std::string escape(std::string_view text);

// The text with stars for all its letters and digits but the last four.
std::string mask_digits(std::string_view text);

// The text with the card value of a line "Card Value: ..." or "Card detected! EPC: ..." as stars, but for its last four
// letters or digits; separators between them and a length in brackets stay. Other texts are returned as they are.
std::string mask_card(std::string_view text);

// The name given to the calling thread in full (the system keeps 15 bytes of it), else the system's.
std::string thread_name();

// Remember the calling thread's name for thread_name(); up to 63 bytes.
void remember_thread_name(std::string_view name);

}  // namespace refhost::log
