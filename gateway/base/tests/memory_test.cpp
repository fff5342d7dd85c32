#include "gateway/base/memory.h"

#include <gtest/gtest.h>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace gateway {
namespace {

// A sanitizer's keeps what is free for a while.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSystemsAllocator = false;
#else
constexpr bool kIsSystemsAllocator = true;
#endif

// kB of /proc/self/status.
long resident(const std::string& what) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word == what) {
      status >> word;
      return std::stol(word);
    }
  }
  return 0;
}

TEST(MemoryTest, WhatIsNotNeededIsGivenBackAndIsThereAgainWhenItIs) {
  const std::string before = std::to_string(0.1);
  std::vector<std::unique_ptr<std::vector<char>>> pieces;
  for (int i = 0; i < 400; ++i) {
    pieces.push_back(std::make_unique<std::vector<char>>(50'000, 'x'));  // below what has a mapping of its own
  }
  const auto last = std::make_unique<std::vector<char>>(50'000, 'x');  // behind which nothing is free
  pieces.clear();
  const long own = resident("RssAnon:");
  const long of_files = resident("RssFile:");
  give_back_memory();
  if (kIsSystemsAllocator) {
    EXPECT_LT(resident("RssAnon:"), own - 15'000);
  }
  EXPECT_LT(resident("RssFile:"), of_files * 3 / 4);  // what this needs comes back at once
  EXPECT_EQ(std::to_string(0.1), before);
  EXPECT_EQ(last->back(), 'x');
}

}  // namespace
}  // namespace gateway
