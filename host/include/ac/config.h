// The host's configuration store: settings as texts.
#pragma once

#include <string>

// May be called on any thread.
namespace ac::config {

// Read a setting. Returns true with value set; false, with value untouched, when there is no such setting. flag: the
// host's business.
bool get_param(const std::string& section, const std::string& key, std::string& value, bool flag);

// Write a setting; it is in the store when the call returns. flag: the host's business. Throws ac::ac_exception when
// the host refuses it.
void set_param(const std::string& section, const std::string& key, const std::string& value, bool flag);

}  // namespace ac::config
