// Utilities of the host.
#pragma once

#include <pthread.h>

#include <string>

// May be called on any thread.
namespace ac::util {

// Name a thread, for logs and debuggers.
void set_thread_name(const std::string& name, pthread_t thread);

// Run a shell command and wait for it; returns its wait status, as system(3) does.
int system(const char* command);

// Write the current local date and time with milliseconds, as text with its final zero byte, into buffer, which the
// caller owns and which has room for at least 64 bytes.
void get_formatted_date_and_time_ms(char* buffer);

namespace identifier {

// A fresh random uuid as text, 8-4-4-4-12 hexadecimal digits.
std::string generate_new_uuid();

}  // namespace identifier

}  // namespace ac::util
