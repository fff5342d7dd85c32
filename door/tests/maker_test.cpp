#include "door/base/maker.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

namespace achost::test {
namespace {

TEST(MakerTest, IsWhoRunsTheCommand) {
  EXPECT_EQ(own_maker().uid, geteuid());
  EXPECT_EQ(maker_of(0).name, "root");
  EXPECT_EQ(maker_of(4'000'000'001), (Maker{.uid = 4'000'000'001, .name = ""})) << "nobody whom the machine knows";
}

TEST(MakerTest, HoldsForTheBlockAndTheThread) {
  EXPECT_FALSE(MakerScope::current().has_value());
  const MakerScope outer({.uid = 1, .name = "ana"});
  {
    const MakerScope inner({.uid = 2, .name = "eve"});
    EXPECT_EQ(MakerScope::current()->name, "eve");
    std::thread([] { EXPECT_FALSE(MakerScope::current().has_value()); }).join();
  }
  EXPECT_EQ(MakerScope::current()->name, "ana");
}

}  // namespace
}  // namespace achost::test
