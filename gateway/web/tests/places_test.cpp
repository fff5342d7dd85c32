#include "gateway/web/places.h"

#include <gtest/gtest.h>

#include <string>

namespace web {
namespace {

class PlacesTest : public testing::Test {
 protected:
  Places::Handle take(char name) {
    return places_.take([this, name] { ended_ += name; });
  }

  Places places_{3};
  std::string ended_;
};

TEST_F(PlacesTest, WhoHasWaitedLongestMakesRoom) {
  const auto first = take('a');
  take('b');
  take('c');
  places_.wait(first);
  EXPECT_TRUE(places_.make_room());
  EXPECT_EQ(ended_, "b");
}

TEST_F(PlacesTest, WhoHasASessionStaysWhileAStrangerWaits) {
  take('a')->is_known = true;
  take('b')->is_known = true;
  take('c');
  EXPECT_TRUE(places_.make_room());
  EXPECT_EQ(ended_, "c");
  EXPECT_TRUE(places_.make_room());
  EXPECT_EQ(ended_, "ca");
}

TEST_F(PlacesTest, NobodyGoesWhoIsBeingAnswered) {
  for (const char name : {'a', 'b', 'c'}) {
    take(name)->waits = false;
  }
  EXPECT_FALSE(places_.make_room());
  EXPECT_EQ(ended_, "");
}

TEST_F(PlacesTest, NobodyGoesWhileThereIsRoom) {
  const auto first = take('a');
  take('b');
  take('c');
  places_.leave(first);
  EXPECT_TRUE(places_.make_room());
  EXPECT_EQ(ended_, "");
  EXPECT_EQ(places_.taken(), 2U);
}

}  // namespace
}  // namespace web
