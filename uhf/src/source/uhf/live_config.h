// Settings that change while the plug-in runs.
#pragma once

#include "ac/message.h"

// "config_param_set" {string "module", string "param", string "value", string "previous_value", int "sys_config"}, on
// the host's delivery thread: writes the audit record, then reads the changed key of section "uhf" afresh and applies
// it. Without "module" it is a setting of the system, "usb_port_enabled" for one. Throws ac::ac_exception "Invalid
// message parameters" for one of those without "param", and what setting the radio up throws.
void configParamSetCallback(ac::Message* message);
