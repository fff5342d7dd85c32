// The host's configuration store: settings as numbers, and the device's relays.
#pragma once

#include <string>
#include <vector>

// May be called on any thread.
namespace ac::config_util {

// An integer setting. A missing one throws ac::ac_exception when required is true and is 0 otherwise.
int get_int(const std::string& section, const std::string& key, bool required);

// A setting that lists ranges of numbers, such as "0-10;26-51" (inclusive, ";"-separated), as all its numbers in
// order. A missing setting is treated as by get_int, with an empty list for 0.
std::vector<int> get_int_range(const std::string& section, const std::string& key, bool required);

// Write an integer setting; it is in the store when the call returns. flag: the host's business. Throws
// ac::ac_exception when the host refuses it.
void set_int(int value, const std::string& section, const std::string& key, bool flag);

// The GPIO number of a relay of the device, by the relay's number.
int relay_gpio(int relay);

// Mark a relay as enabled (the host may use it) or disabled (somebody else drives it).
void relay_enabled(int relay, bool enabled);

}  // namespace ac::config_util
