// Regulatory work areas of the reader.
#pragma once

namespace ac::UHF {

// The values are the settings' own; the module's codes for them are the driver's business.
enum class Region : unsigned int {
  BRAZIL = 0,
  CHINA_900MHZ = 1,
  CHINA_800MHZ = 2,
  AMERICA = 3,
  EUROPE = 4,
  KOREA = 5,
};

}  // namespace ac::UHF
