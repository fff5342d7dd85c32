#include "door/base/maker.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "door/journal/changes.h"

namespace achost::test {
namespace {

TEST(MakerTest, IsWhoRunsTheCommand) {
  EXPECT_EQ(own_maker().uid, geteuid());
  EXPECT_EQ(maker_of(0).name, "root");
  EXPECT_EQ(maker_of(4'000'000'001), (Maker{.uid = 4'000'000'001, .name = ""})) << "nobody whom the machine knows";
}

TEST(MakerTest, HoldsForTheBlockAndTheThread) {
  EXPECT_EQ(MakerScope::current(), nullptr);
  const MakerScope outer({.uid = 1, .name = "ana"});
  {
    const MakerScope inner({.uid = 2, .name = "eve"});
    EXPECT_EQ(MakerScope::current()->name, "eve");
    std::thread([] { EXPECT_EQ(MakerScope::current(), nullptr); }).join();
  }
  EXPECT_EQ(MakerScope::current()->name, "ana");
}

TEST(Changes, HaveTheirMaker) {
  EXPECT_EQ(setting_change("uhf.region", "EUROPE", ""),
            (Entry{.kind = Kind::setting_change,
                   .fields = {{"setting", "uhf.region"}, {"value", "EUROPE"}, {"previous_value", ""}}}))
      << "the device by itself";
  const MakerScope scope({.uid = 5, .name = "ana"});
  EXPECT_EQ(user_change("changed", 7, {{"name", "Eve"}}),
            (Entry{.kind = Kind::user_change,
                   .user = 7,
                   .fields = {{"change", "changed"}, {"name", "Eve"}, {"by_uid", std::int64_t{5}}, {"by", "ana"}}}));
  EXPECT_EQ(card_change("added", 33, 7),
            (Entry{.kind = Kind::card_change,
                   .user = 7,
                   .card = 33,
                   .fields = {{"change", "added"}, {"by_uid", std::int64_t{5}}, {"by", "ana"}}}));
}

}  // namespace
}  // namespace achost::test
