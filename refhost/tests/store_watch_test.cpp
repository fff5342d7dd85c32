#include "refhost/store_watch.h"

#include <gmock/gmock.h>

namespace refhost {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

constexpr milliseconds kThreeSeconds(3000);

class StoresOfAProcess : public testing::Test {
 protected:
  static std::string trouble_after(milliseconds time) {
    return StoreTable::instance().trouble(StoreWatch::Clock::now() + time, kThreeSeconds);
  }

  StoreWatch audit_{"/state/audit.db"};
  StoreWatch users_{"/state/users.db"};
};

TEST_F(StoresOfAProcess, AreWellWhileNobodyUsesThem) {
  EXPECT_EQ(trouble_after(milliseconds(3600000)), "");
  EXPECT_FALSE(StoreTable::instance().longest_stall(StoreWatch::Clock::now(), milliseconds(0)).has_value());
}

TEST_F(StoresOfAProcess, AreNamedOnceTheDiskTakesLongerThanThePatience) {
  const StoreWatch::Use use(audit_, "an audit record");
  EXPECT_EQ(trouble_after(kThreeSeconds - milliseconds(500)), "");
  EXPECT_THAT(trouble_after(kThreeSeconds + milliseconds(1)),
              testing::AllOf(HasSubstr("/state/audit.db"), HasSubstr("an audit record"), HasSubstr("dmesg"),
                             testing::Not(HasSubstr("users.db"))));
}

TEST_F(StoresOfAProcess, AreWellAgainWhenTheDiskHasAnswered) {
  { const StoreWatch::Use use(audit_, "an audit record"); }
  EXPECT_EQ(trouble_after(milliseconds(3600000)), "");
}

TEST_F(StoresOfAProcess, HaveTheSameTroubleForAsLongAsItLasts) {
  const StoreWatch::Use use(audit_, "an audit record");
  EXPECT_EQ(trouble_after(milliseconds(4000)), trouble_after(milliseconds(9000)));
}

TEST_F(StoresOfAProcess, TellTheUseThatLastsForLongest) {
  const StoreWatch::Use first(users_, "a card");
  const auto begun = StoreWatch::Clock::now();
  const StoreWatch::Use second(audit_, "an audit record");
  const auto stall = StoreTable::instance().longest_stall(begun + milliseconds(5000), kThreeSeconds);
  ASSERT_TRUE(stall.has_value());
  EXPECT_STREQ(stall->file.data(), "/state/users.db");
  EXPECT_STREQ(stall->what, "a card");
  EXPECT_GE(stall->length, milliseconds(5000));
}

TEST_F(StoresOfAProcess, TellAFailureUntilAUseEndsWell) {
  StoreWatch::Use(audit_, "an audit record").fail("database is locked");
  EXPECT_THAT(trouble_after(milliseconds(0)),
              HasSubstr("in /state/audit.db an audit record is not stored: database is locked"));
  { const StoreWatch::Use use(users_, "a card"); }
  EXPECT_NE(trouble_after(milliseconds(0)), "") << "another store's use says nothing";
  { const StoreWatch::Use use(audit_, "an audit record"); }
  EXPECT_EQ(trouble_after(milliseconds(0)), "");
}

}  // namespace
}  // namespace refhost
