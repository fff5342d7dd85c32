#include "refhost/upkeep.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <vector>

#include "refhost/tests/captured_log.h"
#include "refhost/tests/support.h"

namespace refhost::test {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;

TEST(Upkeep, GoesOnSoonWhileThereIsMoreAndRestsThen) {
  Recorder<int> steps;
  const Upkeep upkeep(
      "test",
      [&, left = 3]() mutable {
        steps.add(left);
        return --left > 0;
      },
      milliseconds(50));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(steps.wait_for(5), std::vector<int>({3, 2, 1, 0, -1}));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(100)) << "two rests";
}

TEST(Upkeep, SaysAFailureOnceAndTriesAgain) {
  Recorder<int> steps;
  capture_log();
  {
    const Upkeep upkeep(
        "test",
        [&]() -> bool {
          steps.add(0);
          throw std::runtime_error("the disk is full");
        },
        milliseconds(1));
    steps.wait_for(5);
  }
  const std::string log = captured_log();
  const auto first = log.find("the disk is full");
  EXPECT_NE(first, std::string::npos);
  EXPECT_EQ(log.find("the disk is full", first + 1), std::string::npos) << log;
}

TEST(Upkeep, TriesAgainWhatLackedMemoryAndNeedsNoneToSaySo) {
  Recorder<int> steps;
  capture_log();
  {
    const Upkeep upkeep(
        "test",
        [&]() -> bool {
          steps.add(0);
          throw std::bad_alloc();
        },
        milliseconds(1));
    EXPECT_EQ(steps.wait_for(3).size() >= 3, true);
  }
  EXPECT_EQ(captured_log(), "");
}

TEST(Upkeep, EndsWithoutAStepThatIsNotDue) {
  bool called = false;
  {
    const Upkeep upkeep(
        "test", [&] { return called = true; }, hours(1));
  }
  EXPECT_FALSE(called);
}

TEST(Upkeep, AStepThatDoesNotComeBackIsLate) {
  Event begun;
  Event may_end;
  const Upkeep upkeep(
      "the upkeep",
      [&] {
        begun.set();
        may_end.wait();
        return false;
      },
      milliseconds(1));
  begun.wait();
  const auto now = WorkTable::Clock::now();
  const auto late_at = [now](int second) {
    return WorkTable::instance().check(now + std::chrono::seconds(second), std::chrono::seconds(30));
  };
  std::string late;
  for (int second = 0; second <= 630 && late.empty(); ++second) {
    late = late_at(second).has_value() ? "late at " + std::to_string(second) : "";
  }
  may_end.set();
  EXPECT_EQ(late, "late at 601") << "it may read a big file";
}

}  // namespace
}  // namespace refhost::test
