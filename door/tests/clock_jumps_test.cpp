#include "door/journal/clock_jumps.h"

#include <gtest/gtest.h>

namespace achost::test {
namespace {

TEST(ClockJumpsTest, AreSeenInBothDirectionsAndOnceEach) {
  ClockJumps jumps;
  EXPECT_EQ(jumps.look(1'000'000, 5000), std::nullopt) << "nothing to hold it against";
  EXPECT_EQ(jumps.look(1'001'000, 6000), std::nullopt);
  EXPECT_EQ(jumps.look(1'002'249, 7000), std::nullopt) << "pulled right";
  EXPECT_EQ(jumps.look(1'003'499, 8000), 250);
  EXPECT_EQ(jumps.look(1'004'499, 9000), std::nullopt);
  EXPECT_EQ(jumps.look(4499, 10'000), -1'001'000);
}

}  // namespace
}  // namespace achost::test
