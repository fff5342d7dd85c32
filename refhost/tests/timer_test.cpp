#include "refhost/timer.h"

#include <gtest/gtest.h>

#include <new>
#include <vector>

#include "refhost/tests/support.h"

namespace refhost::test {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using Clock = Timer::Clock;

TEST(Timer, CallsAtItsInstantAndNotAgain) {
  Recorder<Clock::time_point> calls;
  Timer timer("test", [&] { calls.add(Clock::now()); });
  const auto due = Clock::now() + milliseconds(20);
  timer.start(due);
  EXPECT_GE(calls.wait_for(1).at(0), due);
  timer.start(Clock::now());
  EXPECT_EQ(calls.wait_for(2).size(), 2U);
}

TEST(Timer, CallsAgainWhatLackedMemory) {
  Recorder<int> calls;
  Timer timer("test", [&, missing = 2]() mutable {
    calls.add(missing);
    if (missing-- > 0) {
      throw std::bad_alloc();
    }
  });
  timer.start(Clock::now());
  EXPECT_EQ(calls.wait_for(3), std::vector<int>({2, 1, 0}));
}

TEST(Timer, ALaterStartTakesThePlaceOfTheOneBefore) {
  Recorder<int> calls;
  Timer timer("test", [&] { calls.add(1); });
  timer.start(Clock::now() + hours(1));
  timer.start(Clock::now());
  EXPECT_EQ(calls.wait_for(1).size(), 1U);
}

TEST(Timer, EndsWithoutCallingWhatIsNotDue) {
  bool called = false;
  {
    Timer timer("test", [&] { called = true; });
    timer.start(Clock::now() + hours(1));
  }
  EXPECT_FALSE(called);
}

TEST(Timer, MayBeStartedFromItsOwnCall) {
  Recorder<int> calls;
  Timer* self = nullptr;
  Event ready;
  Timer timer("test", [&] {
    ready.wait();
    calls.add(1);
    if (calls.wait_for(1).size() < 3) {
      self->start(Clock::now());
    }
  });
  self = &timer;
  ready.set();
  timer.start(Clock::now());
  EXPECT_EQ(calls.wait_for(3).size(), 3U);
}

}  // namespace
}  // namespace refhost::test
