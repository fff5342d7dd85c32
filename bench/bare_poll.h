// The least that polling a reader takes, for processes of their own.
#pragma once

#include <cstddef>
#include <string>

// What nobody can do without who polls every 10 ms and looks at the readings on another thread: a pause, a write and
// reads of the whole answer, and a timed wait.
[[noreturn]] void poll_barely(const std::string& port, std::size_t answer_size);

// The same behind a pseudo-terminal of its own, with a thread that passes the bytes on and does nothing else.
[[noreturn]] void poll_barely_through_a_relay(const std::string& port, std::size_t answer_size);
