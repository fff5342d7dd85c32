// The host's configuration store: settings as texts.
#pragma once

#include <string>

// May be called on any thread, also from inside a handler and with a lock of the plug-in's held: the host calls nothing
// of the plug-in meanwhile.
namespace ac::config {

// Read a setting. Returns true with value set; false, with value untouched, when there is no such setting. flag: the
// host's business. Throws nothing but what the lack of memory throws.
bool get_param(const std::string& section, const std::string& key, std::string& value, bool flag);

// Write a setting; it is in the store, and durable where the store is, when the call returns. The host then announces
// it
// ("config_param_set"), which arrives on the delivery thread. flag: the host's business. Throws ac::ac_exception when
// the host refuses it, with the setting as it was.
void set_param(const std::string& section, const std::string& key, const std::string& value, bool flag);

}  // namespace ac::config
