// What the law of a region leaves to a reader, and powers as people write them.
#pragma once

#include <array>
#include <stdexcept>
#include <string>
#include <string_view>

namespace refhost {

struct RadioLimit {
  std::string_view region;    // as the settings name it
  int most_power;             // conducted, at the module, in hundredths of a dBm
  std::string_view channels;  // ranges, as the settings have them
};

// The gain that the limits of power count with, in dBi: what is usual at a door, and the most with which the American
// rules allow the whole watt. A reader with less gain, or a long cable, may have more power; one with more gain, less.
inline constexpr int kCountedGain = 6;

// The law limits what an antenna radiates, and a module is told what it gives to its cable. Radiated are allowed, by
// "Regulatory status for using RFID in the EPC Gen2 (860 to 960 MHz) band", GS1, March 2021: 4 W EIRP (36 dBm) in
// Brazil, America (47 CFR 15.247) and Korea, 2 W ERP (33 dBm, which is 35.15 dBm EIRP) in Europe (EN 302 208) and both
// bands of China. Conducted are kCountedGain less.
//
// The channels are those that the plug-in publishes as work_channel_enable when it sets the region.
inline constexpr std::array<RadioLimit, 6> kRadioLimits{{
    {"BRAZIL", 3000, "0-10;26-51"},
    {"CHINA_900MHZ", 2915, "0-10;26-51"},
    {"CHINA_800MHZ", 2915, "0-10;26-51"},
    {"AMERICA", 3000, "0-51"},
    {"EUROPE", 2915, "0-14"},
    {"KOREA", 3000, "0-51"},
}};

// By its name in capital or small letters; null when there is no such region.
const RadioLimit* radio_limit_of(std::string_view region);

// The channels of the text that the region does not allow, as ranges; empty when there are none.
std::string channels_outside(const RadioLimit& limit, std::string_view channels);

// A text that is no power; what() says how to write one.
class PowerError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

// One that might be meant in either unit.
class AmbiguousPower : public PowerError {
 public:
  using PowerError::PowerError;
};

// From "21dBm", "21.5 dBm" or "2150", in hundredths of a dBm. Throws PowerError; AmbiguousPower for a number
// without a unit from 1 to 49, or with a fraction.
int parse_power(std::string_view text);

// "21.50 dBm".
std::string power_text(int power);

}  // namespace refhost
