#include "door/base/local_time.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdint>
#include <ctime>
#include <random>

namespace achost {
namespace {

constexpr std::int64_t kHourMs = 3'600'000;
constexpr std::int64_t kBerlinSpring = 1774746000000;  // 2026-03-29 01:00 UTC

class LocalTimesIn : public testing::TestWithParam<const char*> {
 protected:
  LocalTimesIn() {
    setenv("TZ", GetParam(), 1);
    tzset();
  }
  ~LocalTimesIn() override {
    unsetenv("TZ");
    tzset();
  }

  static std::string one(std::int64_t time) { return iso_time(Milliseconds(std::chrono::milliseconds(time))); }

  std::string next(std::int64_t time) {
    std::string text = ">";
    times_.append(text, time);
    return text.substr(1);
  }

 private:
  LocalTimes times_;
};

TEST_P(LocalTimesIn, EveryTimeOfAYearIsAsItIsAlone) {
  for (std::int64_t time = kBerlinSpring - 100 * 24 * kHourMs; time < kBerlinSpring + 265 * 24 * kHourMs;
       time += kHourMs / 4 - 1) {
    ASSERT_EQ(next(time), one(time)) << time;
  }
}

TEST_P(LocalTimesIn, TimesInNoOrderAreAsTheyAreAlone) {
  std::mt19937_64 random(20260102);
  std::uniform_int_distribution<std::int64_t> any(-kHourMs * 24 * 365 * 100, kHourMs * 24 * 365 * 9000);
  for (int i = 0; i < 20000; ++i) {
    const std::int64_t time = any(random);
    ASSERT_EQ(next(time), one(time)) << time;
  }
}

TEST_P(LocalTimesIn, TheEndsOfTheYearsAreAsTheyAreAlone) {
  for (const std::int64_t near : {std::int64_t{0}, std::int64_t{86400000}, std::int64_t{253402300800000}}) {
    for (std::int64_t time = near - 30 * kHourMs; time < near + 30 * kHourMs; time += kHourMs / 2) {
      ASSERT_EQ(next(time), one(time)) << time;
    }
  }
}

TEST(IsoTime, ATimeBefore1970HasItsMillisecondsToo) {
  setenv("TZ", "UTC0", 1);
  tzset();
  EXPECT_EQ(iso_time(Milliseconds(std::chrono::milliseconds(-1))), "1969-12-31T23:59:59.999+00:00");
  unsetenv("TZ");
  tzset();
}

// With rules of their own, which need no table of zones on the machine; Lord Howe's clocks move by half an hour.
INSTANTIATE_TEST_SUITE_P(Zones, LocalTimesIn,
                         testing::Values("UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "EST5EDT,M3.2.0,M11.1.0", "<+0530>-5:30",
                                         "<-0330>3:30", "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0", "<+14>-14"));

}  // namespace
}  // namespace achost
