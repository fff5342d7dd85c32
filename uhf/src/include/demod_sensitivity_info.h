// Settings of the reader's receive demodulator.
#pragma once

namespace ac::UHF {

// As the module takes and gives them, without units and without a check.
struct DemodSensitivityInfo {
  // Mixer gain.
  unsigned char m;
  // Intermediate-frequency amplifier gain.
  unsigned char i;
  // Signal demodulation threshold.
  unsigned short sensitivity;
};

}  // namespace ac::UHF
