// Card values in texts for people.
#pragma once

#include <string>

namespace achost {

// The text with the last four digits alone of each "card 1234567", "EPC E280…" and "tag E280…", as the log has them.
std::string mask_cards(std::string text);

// The same where the output is no terminal, and nobody has asked for card values.
std::string for_this_output(std::string text, bool shows_cards);

}  // namespace achost
