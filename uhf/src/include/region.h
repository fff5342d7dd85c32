// Regulatory work areas of the reader.
#pragma once

namespace ac::UHF {

// The values are the settings' own: the names in the setting "region" are these. The module's codes for them are the
// driver's business. Which channels each allows, the plug-in publishes in the setting "work_channel_enable". Any other
// value is refused by UHFModule::setWorkArea().
//
//   region         value   the module's code   channels
//   BRAZIL         0       0x02                0-10;26-51
//   CHINA_900MHZ   1       0x01                Brazil's
//   CHINA_800MHZ   2       0x04                Brazil's
//   AMERICA        3       0x02                0-51
//   EUROPE         4       0x03                0-14
//   KOREA          5       0x06                0-51
enum class Region : unsigned int {
  BRAZIL = 0,  // also for a name that is unknown
  CHINA_900MHZ = 1,
  CHINA_800MHZ = 2,
  AMERICA = 3,
  EUROPE = 4,
  KOREA = 5,
};

}  // namespace ac::UHF
