// Settings of the reader's receive demodulator.
#pragma once

namespace ac::UHF {

// As the module takes and gives them, without units.
struct DemodSensitivityInfo {
  unsigned char m;             // mixer gain
  unsigned char i;             // intermediate-frequency amplifier gain
  unsigned short sensitivity;  // signal demodulation threshold
};

}  // namespace ac::UHF
