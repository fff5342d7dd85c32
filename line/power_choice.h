// Which power suits a door, from what was read at several.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace line {

// Of the polls at a power, in hundredths of a dBm, those that read the card, 0 to 1.
struct ShareAtPower {
  int power = 0;
  double share = 0;
};

// What was read at one place.
using Place = std::vector<ShareAtPower>;

// The least power at which at least nine tenths as many polls read the card as at its best; nothing when none did.
std::optional<int> enough_power(const Place& place);

// The most power up to which no poll read it; nothing when the least did.
std::optional<int> silent_power(const Place& place);

struct PowerChoice {
  std::optional<int> power;  // the least that is enough wherever a card must be read, if it is silent where it must not
  std::string text;          // for a person, with the way out where there is none
};

PowerChoice choose_power(const std::vector<Place>& must, const std::vector<Place>& must_not);

}  // namespace line
