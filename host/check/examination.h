// The examinations, a chapter each, in the order in which run() makes them.
#pragma once

#include <stdexcept>

namespace hostcheck {

// What was found leaves nothing more to examine; what() says so.
class CannotGoOn : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

inline constexpr const char* kNobodys = "hostcheck_nobodys";  // a type that nobody listens to
inline constexpr const char* kAlive = "hostcheck";            // a name that the watchdog is told from the start

// Throws CannotGoOn when messages do not reach handlers any more.
void require_delivery();

void examine_delivery();
void examine_queue();
void examine_answers();
void examine_fields();
void examine_settings();
void examine_device();
void examine_audit();
void examine_load();

// What only the end of the examination shows, such as a call too many.
void examine_all_that_was_seen();

}  // namespace hostcheck
