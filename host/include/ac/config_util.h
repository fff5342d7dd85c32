// The host's configuration store: settings as numbers, and the device's relays.
#pragma once

#include <string>
#include <vector>

// May be called on any thread, also from inside a handler and with a lock of the plug-in's held: the host calls nothing
// of the plug-in meanwhile.
namespace ac::config_util {

// An integer setting. One that is missing or no integer throws ac::ac_exception when required is true and is 0
// otherwise.
int get_int(const std::string& section, const std::string& key, bool required);

// A setting that lists ranges of numbers, such as "0-10;26-51" (inclusive, ";"-separated), as all its numbers in
// order. A missing setting is treated as by get_int, with an empty list for 0; text that lists no ranges throws an
// exception.
std::vector<int> get_int_range(const std::string& section, const std::string& key, bool required);

// Write an integer setting, as ac::config::set_param writes a text.
void set_int(int value, const std::string& section, const std::string& key, bool flag);

// The number of the GPIO line of a relay of the device, by the relay's number. One that the device does not have throws
// or gives a line that does nothing: the host's business.
int relay_gpio(int relay);

// Mark a relay as enabled (the host may use it) or disabled (somebody else drives it). Until the process ends. One that
// the device does not have throws or is passed over: the host's business.
void relay_enabled(int relay, bool enabled);

}  // namespace ac::config_util
