// Memory that runs out.
#pragma once

#include <cstdint>

namespace achost::test {

// From now on the allocations of this thread by "new" are counted, and the one of that number fails; none does when it
// is below 1.
void fail_allocation(std::int64_t number);

// Returns how many there were.
std::int64_t stop_failing();

// For other allocators: whether this allocation, which is counted, is the one that fails.
bool allocation_fails();

}  // namespace achost::test
