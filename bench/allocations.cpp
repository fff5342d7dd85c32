#include "allocations.h"

#include <cstdlib>
#include <new>

std::size_t allocations = 0;
std::size_t blocks = 0;

void* operator new(std::size_t size) {
  ++allocations;
  ++blocks;
  if (void* const block = std::malloc(size); block != nullptr) {
    return block;
  }
  throw std::bad_alloc();
}

void operator delete(void* block) noexcept {
  if (block != nullptr) {
    --blocks;
    std::free(block);
  }
}

void operator delete(void* block, std::size_t) noexcept { operator delete(block); }
