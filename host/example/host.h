// What the parts of this host tell each other. Every operation may be called on any thread.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "message.h"

namespace example {

// A setting's text; nothing when there is no such setting.
std::optional<std::string> setting(const std::string& section, const std::string& key);

// Keep a setting, and tell the plug-in ("config_param_set"). It is there when this returns.
void keep_setting(const std::string& section, const std::string& key, const std::string& value);

// Send a message with these fields.
void send(const std::string& type, const Fields& fields);

// What answers a message, by its type, on the thread that delivers or waits.
using Answers = std::map<std::string, std::function<Fields(const ac::Message&)>>;

// Begin to deliver, one message after the other, in the order in which they were sent; what was sent before waits until
// then. Once.
void start_bus(Listeners listeners, Answers answers);

// Begin to look after the names that say that they are alive: one that is late ends the process with status 7. Once.
void start_watchdog();

}  // namespace example
