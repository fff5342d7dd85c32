// The names that the host's watchdog is told to be alive.
#pragma once

#include <string>
#include <vector>

namespace hostcheck {

// Names of every kind that a host must take.
std::vector<std::string> names_kept_alive();

// Tell it now, and again and again until the end, so that the host does not end the process. Any thread.
void keep_alive_from_now_on(const std::string& name);

// Say nothing of the first name any more.
void fall_silent();

}  // namespace hostcheck
