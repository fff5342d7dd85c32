// Memory for when there is none.
#pragma once

#include <array>
#include <cstddef>
#include <mutex>
#include <span>

namespace achost {

// Hands out blocks of a piece of memory; what is given back is handed out again, in the size that it had. Any thread
// may call.
class MemoryReserve {
 public:
  // What a block is for. Others leave most of the reserve to the way out.
  enum class Purpose { way_out, other };

  static constexpr std::size_t kLargest = 8176;  // bytes of a block

  // memory: outlives it, aligned as for any type. Every page of it is touched, so that the system has given it.
  explicit MemoryReserve(std::span<std::byte> memory);

  // A block for any type of the usual alignment; null when it is too large or nothing is left for that purpose.
  void* allocate(std::size_t size, Purpose purpose) noexcept;

  // block: one that owns() knows.
  void deallocate(void* block) noexcept;

  bool owns(const void* block) const noexcept {
    return block >= memory_.data() && block < memory_.data() + memory_.size();
  }

 private:
  // Stands before each block, in as much room as keeps the block aligned.
  struct alignas(std::max_align_t) Head {
    std::size_t kind;  // the whole has kSmallest << kind bytes
    Head* next;        // among those that are free
  };
  static constexpr std::size_t kSmallest = 64;
  static constexpr std::size_t kKinds = 8;
  static_assert((kSmallest << (kKinds - 1)) >= kLargest + sizeof(Head));

  Head* taken(std::size_t kind);

  const std::span<std::byte> memory_;
  std::mutex mutex_;            // guards everything below
  std::span<std::byte> fresh_;  // what was in no block yet
  std::array<Head*, kKinds> free_{};
  std::size_t used_ = 0;  // bytes of the blocks that are not free
};

}  // namespace achost
