// The device's inputs: the trigger or inhibit input of the reader, and the exit request of the security box.
#pragma once

#include <atomic>

#include "ac/message.h"

// Whether the inhibit input is at its active level, as far as notifications have told; follows them in INHIBIT mode
// alone. Any thread, sequentially consistent.
extern std::atomic<bool> inhibitActive;

// "gpio_notified" {int "gpio", int "value"}, on the host's delivery thread: opens the trigger window, or the dead time
// after an inhibit. Throws ac::ac_exception "Invalid parameters for message gpio_notified".
void gpioNotifiedCallback(ac::Message* message);

// "sec_box_rex_changed" {int "active"}, on the host's delivery thread: 0 asks for door 1. Without the field nothing is
// asked for.
void secBoxRexChangedCallback(ac::Message* message);

// Asks the host to open a door because of an exit request. Of id the low 32 bits are sent. Any thread.
void forwardRex(long long id);
