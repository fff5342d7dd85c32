// The memory of the program: jemalloc's, and a reserve for when that has none, so that the exit button opens all the
// same. In place of the C++ library's operators, and of its room for exceptions; what the C library takes for itself
// has no reserve.
#include <jemalloc/jemalloc.h>
#include <pthread.h>
#include <unwind.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <string_view>
#include <typeinfo>

#include "door/run/memory_reserve.h"

// One arena is enough for a door, and keeps what is in memory small.
const char* malloc_conf = "narenas:1";

namespace {

using achost::MemoryReserve;

// Never destroyed: the plug-in's threads never stop.
template <std::size_t size>
struct Reserve {
  alignas(std::max_align_t) std::byte memory[size];               // NOLINT
  alignas(MemoryReserve) std::byte place[sizeof(MemoryReserve)];  // NOLINT
  MemoryReserve& made = *new (place) MemoryReserve(memory);
};

MemoryReserve& reserve() {
  static Reserve<256UL * 1024> instance;
  return instance.made;
}

// Exceptions have one of their own: the end of all is that there is no room for one.
MemoryReserve& reserve_of_exceptions() {
  static Reserve<64UL * 1024> instance;
  return instance.made;
}

// At the start, while there is memory.
[[maybe_unused]] const bool kAreReady = (reserve(), reserve_of_exceptions(), true);

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

// What the C++ library keeps before each exception (its ABI: __cxa_refcounted_exception).
struct ExceptionHead {
  int references;
  struct {
    std::type_info* type;
    void (*destructor)(void*);
    void (*unexpected_handler)();
    std::terminate_handler terminate_handler;
    void* next;
    int handlers;
#ifdef __ARM_EABI_UNWINDER__
    void* next_propagating;
    int propagations;
#else
    int handler_switch;
    const unsigned char* action;
    const unsigned char* language_data;
    _Unwind_Ptr catch_place;
    void* adjusted;
#endif
    _Unwind_Exception unwinding;
  } exception;
};

}  // namespace

// The library has 73 kB for when there is no memory. Of version 12 they come back in pieces that are not joined: after
// some hundred exceptions a larger one finds no room, and that ends the process.
extern "C" void* __cxa_allocate_exception(std::size_t size) noexcept {  // NOLINT
  const std::size_t whole = sizeof(ExceptionHead) + size;
  void* block = std::malloc(whole);
  if (block == nullptr) {
    block = reserve_of_exceptions().allocate(whole, MemoryReserve::Purpose::way_out);
  }
  if (block == nullptr) {
    std::terminate();
  }
  return static_cast<std::byte*>(std::memset(block, 0, sizeof(ExceptionHead))) + sizeof(ExceptionHead);
}

extern "C" void __cxa_free_exception(void* exception) noexcept {  // NOLINT
  void* const block = static_cast<std::byte*>(exception) - sizeof(ExceptionHead);
  if (reserve_of_exceptions().owns(block)) {
    reserve_of_exceptions().deallocate(block);
  } else {
    std::free(block);
  }
}

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
