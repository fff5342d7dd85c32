#include "door/services/schedule.h"

#include <gmock/gmock.h>
#include <stdlib.h>

#include <ctime>

#include "door/base/local_time.h"
#include "door/services/schedule_text.h"
#include "refhost/tests/support.h"

namespace achost {
namespace {

using refhost::test::failure_of;
using std::chrono::minutes;
using testing::ElementsAre;
using testing::StartsWith;
using Time = Schedules::Time;

// With rules of their own, which need no table of zones on the machine.
constexpr const char* kBerlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* kNewYork = "EST5EDT,M3.2.0,M11.1.0";

class WeeklySchedule : public testing::Test {
 protected:
  ~WeeklySchedule() override { zone("UTC0"); }

  static void zone(const char* rules) {
    setenv("TZ", rules, 1);
    tzset();
  }

  // "2026-03-29T00:59:00Z"
  static Time utc(const std::string& text) {
    std::tm fields{};
    EXPECT_EQ(*strptime(text.c_str(), "%Y-%m-%d %H:%M", &fields), '\0') << text;
    return std::chrono::system_clock::from_time_t(timegm(&fields));
  }

  // A local time that comes once.
  static Time local(const std::string& text) {
    std::tm fields{};
    fields.tm_isdst = -1;
    EXPECT_EQ(*strptime(text.c_str(), "%Y-%m-%d %H:%M", &fields), '\0') << text;
    return std::chrono::system_clock::from_time_t(std::mktime(&fields));
  }

  static Schedules of(const std::string& rows) { return parse_schedules("name,days,from,to\n" + rows, "f"); }

  static bool holds(const Schedules& schedules, Time time) { return schedules.contains(schedules.all.at(0), time); }

  static int minutes_open(const Schedules& schedules, Time begin, Time end) {
    int count = 0;
    for (auto time = begin; time < end; time += minutes(1)) {
      count += holds(schedules, time) ? 1 : 0;
    }
    return count;
  }

  // In UTC; empty: never.
  static std::string next(const Schedules& schedules, Time after) {
    const auto begin = schedules.next_begin(schedules.all.at(0), after);
    if (!begin.has_value()) {
      return "";
    }
    const std::time_t seconds = std::chrono::system_clock::to_time_t(*begin);
    std::tm fields{};
    gmtime_r(&seconds, &fields);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M", &fields);
    return text;
  }

  static std::string failure(const std::string& text) {
    return failure_of([&] { parse_schedules(text, "f"); });
  }
};

TEST_F(WeeklySchedule, AWindowHoldsFromItsFirstMinuteUntilBeforeItsEnd) {
  for (const char* const rules : {"UTC0", kBerlin, kNewYork}) {
    zone(rules);
    const auto office = of("office,mon-fri,08:00,18:00\n");
    EXPECT_FALSE(holds(office, local("2026-01-05 07:59") + std::chrono::seconds(59)));  // a Monday
    EXPECT_TRUE(holds(office, local("2026-01-05 08:00")));
    EXPECT_TRUE(holds(office, local("2026-01-05 17:59") + std::chrono::milliseconds(59999)));
    EXPECT_FALSE(holds(office, local("2026-01-05 18:00")));
    EXPECT_TRUE(holds(office, local("2026-01-09 12:00")));
    EXPECT_FALSE(holds(office, local("2026-01-10 12:00")));
    EXPECT_FALSE(holds(office, local("2026-01-11 12:00")));
  }
}

TEST_F(WeeklySchedule, AWindowUntil2400HoldsUntilTheDayIsOver) {
  const auto late = of("late,sun,20:00,24:00\n");
  EXPECT_TRUE(holds(late, local("2026-01-11 23:59")));
  EXPECT_FALSE(holds(late, local("2026-01-12 00:00")));
}

TEST_F(WeeklySchedule, AWindowOverMidnightIsOfTheDayOnWhichItBegins) {
  const auto night = of("night,fri,22:00,06:00\n");
  EXPECT_FALSE(holds(night, local("2026-01-09 05:00"))) << "that is Thursday's night";
  EXPECT_TRUE(holds(night, local("2026-01-09 22:00")));
  EXPECT_TRUE(holds(night, local("2026-01-10 05:59")));
  EXPECT_FALSE(holds(night, local("2026-01-10 06:00")));
  EXPECT_FALSE(holds(night, local("2026-01-10 22:00")));
  const auto sunday = of("night,sun,22:00,06:00\n");
  EXPECT_TRUE(holds(sunday, local("2026-01-12 05:00"))) << "the week is a ring";
}

TEST_F(WeeklySchedule, OnAHolidayTheWindowsForHolidaysBeginAloneAndByDefaultNone) {
  const auto office = of("office,mon-fri,08:00,18:00\nEpiphany,2026-01-06,,\n");
  EXPECT_TRUE(holds(office, local("2026-01-05 12:00")));
  EXPECT_FALSE(holds(office, local("2026-01-06 12:00")));
  EXPECT_TRUE(holds(office, local("2026-01-07 12:00")));
  const auto with = of("office,mon-fri,08:00,18:00\nEpiphany,2026-01-06,,\noffice,holiday,10:00,12:00\n");
  EXPECT_FALSE(holds(with, local("2026-01-06 09:00")));
  EXPECT_TRUE(holds(with, local("2026-01-06 11:00")));
  EXPECT_FALSE(holds(with, local("2026-01-07 19:00")));
  const auto night = of("night,mon-sun,22:00,06:00\n,2026-01-06,,\n");
  EXPECT_TRUE(holds(night, local("2026-01-06 05:00"))) << "the night before the holiday goes on into it";
  EXPECT_FALSE(holds(night, local("2026-01-07 05:00")));
}

TEST_F(WeeklySchedule, AWindowWithinTheHourThatIsLeftOutDoesNotCome) {
  const auto window = of("w,mon-sun,02:00,03:00\n");
  for (const auto& [rules, begin] : {std::pair(kBerlin, "2026-03-28 23:00"), std::pair(kNewYork, "2026-03-08 05:00")}) {
    zone(rules);
    EXPECT_EQ(minutes_open(window, utc(begin), utc(begin) + std::chrono::hours(23)), 0) << rules;
    EXPECT_EQ(minutes_open(window, utc(begin) + std::chrono::hours(23), utc(begin) + std::chrono::hours(47)), 60);
  }
  zone(kBerlin);
  EXPECT_EQ(minutes_open(of("w,sun,01:30,03:30\n"), utc("2026-03-28 23:00"), utc("2026-03-29 22:00")), 60)
      << "the hour is missing from a window that is longer";
}

TEST_F(WeeklySchedule, AWindowWithinTheHourThatComesTwiceHoldsBothTimes) {
  const auto window = of("w,mon-sun,02:00,03:00\n");
  zone(kBerlin);
  EXPECT_FALSE(holds(window, utc("2026-10-24 23:59")));
  EXPECT_TRUE(holds(window, utc("2026-10-25 00:00"))) << "02:00 for the first time";
  EXPECT_TRUE(holds(window, utc("2026-10-25 01:00"))) << "02:00 once more";
  EXPECT_TRUE(holds(window, utc("2026-10-25 01:59")));
  EXPECT_FALSE(holds(window, utc("2026-10-25 02:00")));
  zone(kNewYork);  // 01:00 to 02:00 comes twice there
  EXPECT_EQ(minutes_open(window, utc("2026-11-01 04:00"), utc("2026-11-02 05:00")), 60);
  EXPECT_EQ(minutes_open(of("w,sun,01:00,02:00\n"), utc("2026-11-01 04:00"), utc("2026-11-02 05:00")), 120);
}

TEST_F(WeeklySchedule, WhereClocksAreNotChangedEachDayHasItsHours) {
  zone("<+0530>-5:30");
  const auto window = of("w,mon-sun,02:00,03:00\n");
  for (auto day = local("2026-01-01 00:00"); day < local("2027-01-01 00:00"); day += std::chrono::days(1)) {
    ASSERT_EQ(minutes_open(window, day, day + std::chrono::days(1)), 60);
  }
}

TEST_F(WeeklySchedule, TheNextWindowIsTheFirstThatBeginsAfterwards) {
  zone("UTC0");
  const auto office =
      of("office,fri,07:00,08:00\noffice,mon-fri,08:30,12:00\noffice,mon-fri,13:00,18:00\n"
         "Monday off,2026-01-12,,\n");
  EXPECT_EQ(next(office, utc("2026-01-08 06:00")), "2026-01-08 08:30");
  EXPECT_EQ(next(office, utc("2026-01-08 12:00")), "2026-01-08 13:00");
  EXPECT_EQ(next(office, utc("2026-01-08 20:00")), "2026-01-09 07:00");
  EXPECT_EQ(next(office, utc("2026-01-09 18:00")), "2026-01-13 08:30") << "over a weekend and a holiday";
  EXPECT_EQ(next(of("w,holiday,08:00,09:00\nx,2026-12-25,,\n"), utc("2026-01-09 18:00")), "2026-12-25 08:00");
  EXPECT_EQ(next(of("w,holiday,08:00,09:00\n"), utc("2026-01-09 18:00")), "");
}

// What the minutes say that are asked for one by one.
TEST_F(WeeklySchedule, TheNextWindowIsRightOverBothChangesOfClocks) {
  for (const char* const rows : {"w,mon-sun,02:00,03:00\n", "w,mon-sun,02:30,03:30\n", "w,mon-sun,22:00,02:30\n",
                                 "w,mon-sun,01:15,01:45\n", "w,sun,03:00,04:00\n"}) {
    const auto schedules = of(rows);
    for (const auto& [rules, day] :
         {std::pair(kBerlin, "2026-03-28 20:00"), std::pair(kBerlin, "2026-10-24 20:00"),
          std::pair(kNewYork, "2026-03-08 02:00"), std::pair(kNewYork, "2026-11-01 02:00")}) {
      zone(rules);
      const auto begin = utc(day);
      auto expected = begin + std::chrono::days(9);
      for (; !holds(schedules, expected); expected -= minutes(1)) {
      }
      for (auto time = expected; time >= begin; time -= minutes(1)) {
        if (holds(schedules, time)) {
          expected = time;
        } else if (time < begin + std::chrono::hours(12)) {
          ASSERT_EQ(schedules.next_begin(schedules.all[0], time), std::optional(expected))
              << rows << rules << " " << (time - begin) / minutes(1);
        }
      }
    }
  }
}

TEST_F(WeeklySchedule, DaysAreWrittenInManyWays) {
  const auto days = [](const std::string& text) {
    return text_of_days(of("w," + text + ",08:00,09:00\n").all.at(0).windows.at(0).days);
  };
  EXPECT_EQ(days("Mon-Fri"), "mon-fri");
  EXPECT_EQ(days("fri-mon"), "mon fri-sun");
  EXPECT_EQ(days("saturday sunday"), "sat sun");
  EXPECT_EQ(days("\"tue, thu,holiday\""), "tue thu holiday");
  EXPECT_EQ(days("mon-sun holidays"), "mon-sun holiday");
  EXPECT_EQ(days("wed"), "wed");
}

TEST_F(WeeklySchedule, TimesAreWrittenAsPeopleAndSpreadsheetsDo) {
  EXPECT_THAT(of("w,mon,8:00,24:00\nw,tue,00:00,08:05:00\n").all.at(0).windows,
              ElementsAre(Window{.days = 1, .from = 480, .to = 1440}, Window{.days = 2, .from = 0, .to = 485}));
}

TEST_F(WeeklySchedule, WhatIsWrongIsSaidWithItsLineAndTheWayOut) {
  const std::string head = "name,days,from,to\n";
  const std::pair<std::string, std::string> cases[] = {
      {"", "f:1: the column \"name\" is not there once: the first line names the columns"},
      {"name,days,from\n", "f:1: the column \"to\" is not there once"},
      {"name,days,from,to,to\n", "f:1: the column \"to\" is not there once"},
      {"name,days,from,until\n", "f:1: there is no column \"until\""},
      {head + "w,mon,08:00\n", "f:2: 3 cells for 4 columns: give as many"},
      {head + "w,mon,08:00,09:00\n\nw,mo,08:00,09:00\n", "f:4: \"mo\" is no day: give days such as mon-fri"},
      {head + "w,,08:00,09:00\n", "f:2: there is no day: give days"},
      {head + "w,mon-,08:00,09:00\n", "f:2: \"mon-\" is no day"},
      {head + "w,mon,24:00,09:00\n", "f:2: \"24:00\" is no time of the day: give 00:00 to 23:59"},
      {head + "w,mon,08:00,24:01\n", "f:2: \"24:01\" is no time of the day: give 00:00 to 24:00"},
      {head + "w,mon,08:60,09:00\n", "f:2: \"08:60\" is no time of the day"},
      {head + "w,mon,8,09:00\n", "f:2: \"8\" is no time of the day"},
      {head + "w,mon,,09:00\n", "f:2: \"\" is no time of the day"},
      {head + "w,mon,08:00,08:00\n", "f:2: from 08:00 to 08:00 is no time: give 00:00 and 24:00 for a whole day"},
      {head + ",mon,08:00,09:00\n", "f:2: \"\" cannot be the name of a schedule: give another"},
      {head + "none,mon,08:00,09:00\n", "f:2: \"none\" cannot be the name of a schedule"},
      {head + "\"a\nb\",mon,08:00,09:00\n", "f:2: \"a\\nb\" is no name: give one line"},
      {head + std::string(65, 'x') + ",mon,08:00,09:00\n", "f:2: \"xxx"},
      {head + "x,2026-02-29,,\n", "f:2: \"2026-02-29\" is no day of a calendar"},
      {head + "x,2026-02-28,08:00,\n", "f:2: a holiday has no times: leave from and to empty"},
      {head + "x,2026-02-28,,\ny,2026-02-28,,\n", "f:3: 2026-02-28 is a holiday in line 2 already"},
      {head + "w,\"mon\n", "f:2: "},
      {head + "\xFF,mon,08:00,09:00\n", "f:2: this is no UTF-8"},
  };
  for (const auto& [text, error] : cases) {
    EXPECT_THAT(failure(text), StartsWith(error)) << text;
  }
  std::string many = head;
  for (std::size_t i = 0; i <= kMostScheduleRows; ++i) {
    many += "w,mon,08:00,09:00\n";
  }
  EXPECT_THAT(failure(many), StartsWith("f:10002: more than 10000 lines"));
}

TEST_F(WeeklySchedule, WhatIsWrittenIsReadAsItWas) {
  const auto schedules =
      of("night,fri-mon holiday,22:00,6:00\noffice,mon-fri,08:00,18:00\n\"=a, b\",sat,00:00,24:00\n"
         "office,sat,9:00,12:00\n\"Christmas, first day\",2026-12-25,,\n,2027-01-01,,\n");
  EXPECT_EQ(schedules.all.size(), 3U);
  EXPECT_EQ(schedules.find("office")->windows.size(), 2U);
  EXPECT_EQ(schedules.find("Office"), nullptr);
  EXPECT_EQ(parse_schedules(schedules_as_text(schedules), "g"), schedules);
  EXPECT_THAT(schedules_as_text(schedules), testing::HasSubstr("\r\nnight,mon fri-sun holiday,22:00,06:00\r\n"));
}

}  // namespace
}  // namespace achost
