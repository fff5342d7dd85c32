#include "door/run/memory_reserve.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

namespace achost {
namespace {

using Purpose = MemoryReserve::Purpose;

class Reserve : public testing::Test {
 protected:
  // Takes blocks until there is none.
  std::vector<void*> drained(std::size_t size, Purpose purpose) {
    std::vector<void*> blocks;
    while (void* const block = reserve_.allocate(size, purpose)) {
      std::memset(block, static_cast<int>(blocks.size()), size);
      blocks.push_back(block);
    }
    return blocks;
  }

  alignas(std::max_align_t) std::array<std::byte, 65536> memory_{};
  MemoryReserve reserve_{memory_};
};

TEST_F(Reserve, GivesBlocksOfItsMemoryThatDoNotOverlap) {
  const auto blocks = drained(100, Purpose::way_out);
  EXPECT_EQ(blocks.size(), 512U);
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    const auto* const bytes = static_cast<unsigned char*>(blocks[i]);
    EXPECT_TRUE(reserve_.owns(bytes));
    EXPECT_TRUE(reserve_.owns(bytes + 99));
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(bytes) % alignof(std::max_align_t), 0U);
    EXPECT_EQ(bytes[0], static_cast<unsigned char>(i));
    EXPECT_EQ(bytes[99], static_cast<unsigned char>(i));
  }
}

TEST_F(Reserve, GivesWhatIsGivenBackForEver) {
  for (int i = 0; i < 100000; ++i) {
    void* const block = reserve_.allocate(static_cast<std::size_t>(i % 2000), Purpose::way_out);
    ASSERT_NE(block, nullptr) << i;
    reserve_.deallocate(block);
  }
}

TEST_F(Reserve, IsForSmallThings) {
  EXPECT_NE(reserve_.allocate(MemoryReserve::kLargest, Purpose::way_out), nullptr);
  EXPECT_EQ(reserve_.allocate(MemoryReserve::kLargest + 1, Purpose::way_out), nullptr);
}

TEST_F(Reserve, IsKeptForTheWayOut) {
  const auto others = drained(100, Purpose::other);
  EXPECT_GT(others.size(), 10U);
  EXPECT_GT(drained(100, Purpose::way_out).size(), others.size());
  EXPECT_EQ(reserve_.allocate(1, Purpose::other), nullptr);
}

TEST_F(Reserve, ServesSeveralThreadsAtATime) {
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this, i] {
      for (int round = 0; round < 10000; ++round) {
        auto* const block = static_cast<unsigned char*>(reserve_.allocate(200, Purpose::way_out));
        ASSERT_NE(block, nullptr);
        std::memset(block, i, 200);
        ASSERT_EQ(block[199], i);
        reserve_.deallocate(block);
      }
    });
  }
}

}  // namespace
}  // namespace achost
