#include "refhost/watchdog.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "ac/watchdog.h"
#include "refhost/tests/support.h"

namespace refhost::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

class WatchdogTime : public testing::Test {
 protected:
  static WatchdogTable::Clock::time_point at(milliseconds time) { return WatchdogTable::Clock::time_point(time); }

  // Checks each second, as the checking thread does, up to that time; the name that was late then.
  std::string late_at(milliseconds time) {
    for (; checked_ + seconds(1) < time; checked_ += seconds(1)) {
      table.check(at(checked_ + seconds(1)));
    }
    checked_ = time;
    const auto late = table.check(at(time));
    return late.has_value() ? late->name : "";
  }

  WatchdogTable table;

 private:
  milliseconds checked_{0};
};

TEST_F(WatchdogTime, NobodyIsLateWhoNeverReported) { EXPECT_EQ(late_at(seconds(1000)), ""); }

TEST_F(WatchdogTime, NameIsLateAfterThirtySeconds) {
  table.keep_alive("uhf", at(seconds(1)));
  EXPECT_EQ(late_at(seconds(31)), "");
  EXPECT_EQ(late_at(seconds(31) + milliseconds(1)), "uhf");
}

TEST_F(WatchdogTime, EachReportBeginsTheLimitAnew) {
  table.keep_alive("uhf", at(seconds(1)));
  EXPECT_EQ(late_at(seconds(20)), "");
  table.keep_alive("uhf", at(seconds(20)));
  EXPECT_EQ(late_at(seconds(50)), "");
  EXPECT_EQ(late_at(seconds(51)), "uhf");
}

TEST_F(WatchdogTime, EveryNameHasItsOwnTime) {
  table.keep_alive("uhf", at(seconds(0)));
  table.keep_alive("uhf_worker", at(seconds(0)));
  for (int second = 1; second <= 40; ++second) {
    table.keep_alive("uhf", at(seconds(second)));
  }
  EXPECT_EQ(late_at(seconds(40)), "uhf_worker");
}

TEST_F(WatchdogTime, TheLatestOfSeveralIsNamedWithItsSilence) {
  table.keep_alive("b", at(seconds(1)));
  table.keep_alive("a", at(seconds(2)));
  EXPECT_EQ(late_at(seconds(31)), "");
  const auto late = table.check(at(seconds(40)));
  ASSERT_TRUE(late.has_value());
  EXPECT_EQ(late->name, "b");
  EXPECT_EQ(late->silence, seconds(39));
}

TEST_F(WatchdogTime, LimitCanBeSet) {
  table.set_limit(seconds(5));
  table.keep_alive("uhf", at(seconds(0)));
  EXPECT_EQ(late_at(seconds(5)), "");
  EXPECT_EQ(late_at(milliseconds(5001)), "uhf");
}

TEST_F(WatchdogTime, StoppedProcessGivesEveryNameAFreshLimit) {
  table.keep_alive("uhf", at(seconds(0)));
  EXPECT_EQ(late_at(seconds(1)), "");
  // Nobody ran for 100 seconds, the checking thread neither.
  EXPECT_FALSE(table.check(at(seconds(101))).has_value());
  EXPECT_FALSE(table.check(at(seconds(131))).has_value());
  EXPECT_TRUE(table.check(at(seconds(132))).has_value());
}

TEST(Watchdog, TellsTheNameThatIsLateOnce) {
  WatchdogTable table;
  table.set_limit(milliseconds(50));
  Recorder<std::string> late;
  const Watchdog watchdog(table, milliseconds(5), [&](const WatchdogTable::Late& who) { late.add(who.name); });
  table.keep_alive("sleeper", WatchdogTable::Clock::now());
  EXPECT_EQ(late.wait_for(1), std::vector<std::string>({"sleeper"}));
}

TEST(Watchdog, EndsWithoutWaitingForItsPeriod) {
  WatchdogTable table;
  const Watchdog watchdog(table, std::chrono::hours(1), [](const WatchdogTable::Late&) { FAIL(); });
}

TEST(Watchdog, PluginsReportToTheTableOfTheProcess) {
  const auto start = WatchdogTable::Clock::now();
  ac::watchdog::keep_alive("somebody");
  auto& table = WatchdogTable::instance();
  EXPECT_FALSE(table.check(start).has_value());
  EXPECT_FALSE(table.check(start + seconds(29)).has_value());
  const auto late = table.check(start + seconds(59));
  ASSERT_TRUE(late.has_value());
  EXPECT_EQ(late->name, "somebody");
}

}  // namespace
}  // namespace refhost::test
