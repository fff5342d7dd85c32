#include "door/run/memory_reserve.h"

#include <algorithm>
#include <bit>
#include <new>

namespace achost {

MemoryReserve::MemoryReserve(std::span<std::byte> memory) : memory_(memory), fresh_(memory) {
  std::ranges::fill(memory, std::byte{0xFF});
}

void* MemoryReserve::allocate(std::size_t size, Purpose purpose) noexcept {
  if (size > kLargest) {
    return nullptr;
  }
  const std::size_t whole = std::max(std::bit_ceil(size + sizeof(Head)), kSmallest);
  const std::lock_guard lock(mutex_);
  if (purpose == Purpose::other && used_ + whole > memory_.size() / 4) {
    return nullptr;
  }
  Head* const head = taken(static_cast<std::size_t>(std::countr_zero(whole / kSmallest)));
  if (head == nullptr) {
    return nullptr;
  }
  used_ += kSmallest << head->kind;
  return head + 1;
}

// With the mutex held: one that was given back, else fresh memory, else a larger one.
MemoryReserve::Head* MemoryReserve::taken(std::size_t kind) {
  const std::size_t whole = kSmallest << kind;
  if (free_[kind] == nullptr && fresh_.size() >= whole) {
    auto* const head = new (fresh_.data()) Head{.kind = kind, .next = nullptr};
    fresh_ = fresh_.subspan(whole);
    return head;
  }
  for (; kind < kKinds; ++kind) {
    if (Head* const head = free_[kind]; head != nullptr) {
      free_[kind] = head->next;
      return head;
    }
  }
  return nullptr;
}

void MemoryReserve::deallocate(void* block) noexcept {
  Head* const head = static_cast<Head*>(block) - 1;
  const std::lock_guard lock(mutex_);
  used_ -= kSmallest << head->kind;
  head->next = free_[head->kind];
  free_[head->kind] = head;
}

}  // namespace achost
