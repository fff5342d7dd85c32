// Audit records that the plug-in writes on behalf of the host.
#pragma once

#include <string>
#include <vector>

#include "ac/message.h"

// What the type codes of the records mean, by code.
extern const std::vector<std::string> auditTypeLabels;

// Each writes one record, with the time of its run, and passes on what the host's storage throws. They may run on
// several threads at once: the inserts take turns.

// "config_param_set": type 1. A change from a value to the very same writes nothing.
void create_config_audit_log_callback(ac::Message* message);

// Types 2, 3, 4, 6 and 7, with the message's string "details", empty when there is none.
void create_api_audit_log_callback(ac::Message* message);
void create_usb_audit_log_callback(ac::Message* message);
void create_network_audit_log_callback(ac::Message* message);
void create_online_audit_log_callback(ac::Message* message);
void create_menu_audit_log_callback(ac::Message* message);

// "ac_util_system_clock_set": type 5, with its string "previous_time"; the record's time is that of the new clock.
void create_time_audit_log_callback(ac::Message* message);

// Type 8; the message is not read.
void create_boot_audit_log_callback(ac::Message* message);
