// What may be set where, and powers as people give them.
#pragma once

#include <string>
#include <string_view>

#include "refhost/radio_limits.h"

namespace uhfctl {

// What a command that sets the radio holds it to.
struct Law {
  std::string region = "BRAZIL";
  bool force = false;  // more is set all the same
};

// Throws Failure kUsage when there is no such region.
const refhost::RadioLimit& limit_of(const std::string& region);

// In hundredths of a dBm. Throws Failure kUsage.
int power_from(std::string_view text);

// Both throw Failure kUsage when that is more than the law's region allows and nothing is forced.
void hold_power_to(const Law& law, int power);
void hold_channels_to(const Law& law, const std::string& channels);

}  // namespace uhfctl
