#include "refhost/work.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "ac/post_office.h"
#include "refhost/subscriber.h"
#include "refhost/tests/support.h"
#include "refhost/timer.h"

namespace refhost::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// Checks each second up to that time, as the watchdog does; what was late then.
class WorkTime : public testing::Test {
 protected:
  std::string late_at(seconds time) {
    std::optional<WatchdogTable::Late> late;
    while (checked_ < time) {
      checked_ += seconds(1);
      late = WorkTable::instance().check(WorkTable::Clock::time_point(checked_), seconds(30));
    }
    return late.has_value() ? late->name : "";
  }

  void skip_to(seconds time) { checked_ = time; }

  Work work{"the work"};

 private:
  seconds checked_ = std::chrono::duration_cast<seconds>(WorkTable::Clock::now().time_since_epoch());

 protected:
  const seconds begin_ = checked_;
};

TEST_F(WorkTime, WhoHasNothingToDoIsNeverLate) {
  work.begin();
  work.end();
  EXPECT_EQ(late_at(begin_ + seconds(1000)), "");
}

TEST_F(WorkTime, AStepIsLateAfterTheLimit) {
  work.begin();
  EXPECT_EQ(late_at(begin_ + seconds(31)), "");
  EXPECT_EQ(late_at(begin_ + seconds(32)), "the work");
}

TEST_F(WorkTime, WhatWaitsIsLateAfterTheLimitFromItsComing) {
  bool waits = false;
  const Work held("the held work", 1, [&waits] { return waits; });
  EXPECT_EQ(late_at(begin_ + seconds(1000)), "");
  waits = true;
  EXPECT_EQ(late_at(begin_ + seconds(1031)), "");
  EXPECT_EQ(late_at(begin_ + seconds(1032)), "the held work");
}

TEST_F(WorkTime, WhatWaitsAtTheFirstCheckHasTheWholeLimit) {
  const Work held("the held work", 1, [] { return true; });
  EXPECT_EQ(late_at(begin_ + seconds(31)), "");
  EXPECT_EQ(late_at(begin_ + seconds(32)), "the held work");
}

TEST_F(WorkTime, WhatAlwaysHasMoreToDoIsNotLateWhileItWorks) {
  Work busy("the busy work", 1, [] { return true; });
  for (int step = 1; step <= 4; ++step) {
    busy.begin();
    busy.end();
    EXPECT_EQ(late_at(begin_ + seconds(25) * step), "");
  }
}

TEST_F(WorkTime, EachStepHasTheWholeLimit) {
  for (int step = 1; step <= 3; ++step) {
    work.begin();
    EXPECT_EQ(late_at(begin_ + seconds(25) * step), "");
    work.end();
  }
}

TEST_F(WorkTime, PatienceIsCountedInLimits) {
  Work patient("the patient", 2);
  patient.begin();
  EXPECT_EQ(late_at(begin_ + seconds(61)), "");
  EXPECT_EQ(late_at(begin_ + seconds(62)), "the patient");
  patient.end();
}

TEST_F(WorkTime, AProcessThatWasStoppedBeginsAnew) {
  work.begin();
  EXPECT_EQ(late_at(begin_ + seconds(20)), "");
  skip_to(begin_ + seconds(500));
  EXPECT_EQ(late_at(begin_ + seconds(520)), "");
  EXPECT_EQ(late_at(begin_ + seconds(532)), "the work");
}

TEST_F(WorkTime, AHandlerThatHangsIsNamed) {
  Event begun;
  Event release;
  const Subscriber subscriber("slow", {on("work.slow", [&](ac::Message*) {
                                begun.set();
                                release.wait();
                              })});
  ac::PostOffice::send_message(message("work.slow"));
  ASSERT_TRUE(begun.wait());
  EXPECT_EQ(late_at(begin_ + seconds(32)), "delivery to slow");
  release.set();
}

TEST_F(WorkTime, ATimerThatHangsIsNamed) {
  Event begun;
  Event release;
  Timer timer("slow_timer", [&] {
    begun.set();
    release.wait();
  });
  timer.start(Timer::Clock::now());
  ASSERT_TRUE(begun.wait());
  EXPECT_EQ(late_at(begin_ + seconds(32)), "slow_timer");
  release.set();
}

TEST(WorkWatchdog, IsToldOfAStepThatHangs) {
  WatchdogTable table;
  table.set_limit(milliseconds(20));
  Work work("the work");
  Recorder<std::string> late;
  work.begin();
  const Watchdog watchdog(table, milliseconds(5), [&](const WatchdogTable::Late& who) { late.add(who.name); });
  EXPECT_EQ(late.wait_for(1), std::vector<std::string>{"the work"});
}

}  // namespace
}  // namespace refhost::test
