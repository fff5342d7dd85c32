// Utilities of the host.
#pragma once

#include <pthread.h>

#include <string>

// May be called on any thread; none takes a lock that a caller could hold.
namespace ac::util {

// Name a thread, for logs and debuggers. The system keeps 15 bytes of it. Never fails.
void set_thread_name(const std::string& name, pthread_t thread);

// Run a shell command and wait for it, however long it takes; returns its wait status, as system(3) does: -1 when it
// could not be started.
int system(const char* command);

// Write the current local date and time with milliseconds, as text with its final zero byte, into buffer, which the
// caller owns and which has room for at least 64 bytes.
void get_formatted_date_and_time_ms(char* buffer);

namespace identifier {

// A fresh random uuid (version 4) as text, 8-4-4-4-12 hexadecimal digits. Throws when the system has no random numbers.
std::string generate_new_uuid();

}  // namespace identifier

}  // namespace ac::util
