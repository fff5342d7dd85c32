// Counts what a program allocates with new. Linked to programs of one thread.
#pragma once

#include <cstddef>

extern std::size_t allocations;  // so far
extern std::size_t blocks;       // allocated and not freed
