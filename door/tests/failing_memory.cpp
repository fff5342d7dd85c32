#include "door/tests/failing_memory.h"

#include <cstdlib>
#include <new>

namespace achost::test {
namespace {

thread_local bool counts = false;
thread_local std::int64_t allocations = 0;
thread_local std::int64_t failing_allocation = 0;

}  // namespace

void fail_allocation(std::int64_t number) {
  allocations = 0;
  failing_allocation = number;
  counts = true;
}

std::int64_t stop_failing() {
  counts = false;
  return allocations;
}

bool allocation_fails() { return counts && ++allocations == failing_allocation; }

}  // namespace achost::test

// For the whole process: a program's own come before a library's.
void* operator new(std::size_t size) {
  void* const memory = achost::test::allocation_fails() ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
