// The device's USB port for disks.
#pragma once

#include "ac/message.h"

// Switches the port by the message's string "value": "0" unmounts the disk and forbids the device manager to mount one,
// anything else, also none, allows it. Without the file for that nothing is done but a debug line. Runs shell commands;
// what they return does not matter.
void configUSB(ac::Message* message);
