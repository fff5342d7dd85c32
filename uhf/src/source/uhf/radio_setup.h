// Bringing the reader's radio into line with the settings.
#pragma once

#include "globals.h"

// Each reads its settings afresh, talks to the reader, and throws ac::ac_exception with a text of its own when the
// reader does not answer. May be called on any thread once init() has set t640_module.

// Setting "region": the work area (an unknown name is BRAZIL), and the channels it allows into "work_channel_enable".
void setRegion();

// Setting "transmit_power": written only when the reader has another. Above 65535 its low 16 bits are sent.
void applyTransmitPower();

// Setting "work_channel": ranges of channel numbers.
UHF_EXPORT void setWorkChannel();
