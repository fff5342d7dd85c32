// The memory of the program: jemalloc's, and a reserve for when that has none, so that the exit button opens all the
// same. In place of the C++ library's operators; what the C library takes for itself has no reserve.
#include <jemalloc/jemalloc.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <string_view>

#include "door/run/memory_reserve.h"

// One arena is enough for a door, and keeps what is in memory small.
const char* malloc_conf = "narenas:1";

namespace {

using achost::MemoryReserve;

constexpr std::size_t kReserve = 256UL * 1024;
alignas(std::max_align_t) std::byte reserve_memory[kReserve];  // NOLINT

// Never destroyed: the plug-in's threads never stop.
MemoryReserve& reserve() {
  alignas(MemoryReserve) static std::byte place[sizeof(MemoryReserve)];  // NOLINT
  static MemoryReserve& instance = *new (place) MemoryReserve(reserve_memory);
  return instance;
}

// At the start, while there is memory.
[[maybe_unused]] const bool kIsReady = reserve().owns(reserve_memory);

// From the button to the relay and back, and those who watch.
constexpr std::string_view kWayOut[] = {"control_client", "gpio_edges",   "uhf:inputs", "door",    "gpio",
                                        "door_timer",     "door_timer_2", "watchdog",   "control", "way_out"};

MemoryReserve::Purpose purpose_of_this_thread() {
  std::array<char, 16> name{};
  pthread_getname_np(pthread_self(), name.data(), name.size());  // of itself: without memory and without waiting
  return std::ranges::find(kWayOut, name.data()) == std::end(kWayOut) ? MemoryReserve::Purpose::other
                                                                      : MemoryReserve::Purpose::way_out;
}

void* allocated(std::size_t size) noexcept {
  void* const block = std::malloc(size == 0 ? 1 : size);
  return block != nullptr ? block : reserve().allocate(size, purpose_of_this_thread());
}

void* allocated_or_thrown(std::size_t size) {
  void* const block = allocated(size);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}

void release(void* block) noexcept {
  if (reserve().owns(block)) {
    reserve().deallocate(block);
  } else {
    std::free(block);
  }
}

void release(void* block, std::size_t size) noexcept {
  if (block == nullptr || reserve().owns(block)) {
    release(block);
  } else {
    sdallocx(block, size == 0 ? 1 : size, 0);
  }
}

}  // namespace

void* operator new(std::size_t size) { return allocated_or_thrown(size); }
void* operator new[](std::size_t size) { return allocated_or_thrown(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocated(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocated(size); }
void operator delete(void* block) noexcept { release(block); }
void operator delete[](void* block) noexcept { release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { release(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { release(block); }
void operator delete(void* block, std::size_t size) noexcept { release(block, size); }
void operator delete[](void* block, std::size_t size) noexcept { release(block, size); }
