#include "line/ladder.h"

#include <gmock/gmock.h>

#include "line/tests/samples.h"

namespace line::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

// Every rung that is due in that time, with the milliseconds since the start.
std::vector<std::pair<Rung, int>> climbed(Ladder& ladder, seconds time, bool has_port = true) {
  std::vector<std::pair<Rung, int>> result;
  for (milliseconds at(0); at <= time; at += milliseconds(250)) {
    if (const auto rung = ladder.due(kStart + at, has_port)) {
      result.emplace_back(*rung, static_cast<int>(at.count()));
    }
  }
  return result;
}

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST(LineLadder, NothingIsDueBeforeItBegins) {
  Ladder ladder(true, minutes(5));
  EXPECT_THAT(climbed(ladder, seconds(10)), IsEmpty());
}

TEST(LineLadder, TakesOneRungAfterTheOtherAndThenMoreAndMoreRarely) {
  Ladder ladder(true, minutes(5));
  ladder.begin(kStart);
  EXPECT_THAT(climbed(ladder, seconds(18)),
              ElementsAre(Pair(Rung::drop_waiting, 0), Pair(Rung::reopen, 500), Pair(Rung::reset, 2500),
                          Pair(Rung::reopen, 7500), Pair(Rung::reset, 11500)));
  EXPECT_EQ(ladder.taken(), (std::array<int, kRungs>{1, 2, 2, 0}));
}

TEST(LineLadder, WithoutAResetThePortIsOpenedMoreAndMoreRarely) {
  Ladder ladder(false, milliseconds(0));
  ladder.begin(kStart);
  EXPECT_THAT(climbed(ladder, seconds(20)),
              ElementsAre(Pair(Rung::drop_waiting, 0), Pair(Rung::reopen, 500), Pair(Rung::reopen, 2500),
                          Pair(Rung::reopen, 6500), Pair(Rung::reopen, 14500)));
  const auto hour = climbed(ladder, seconds(3600));
  EXPECT_GT(hour.size(), 50U);
  EXPECT_LT(hour.size(), 70U) << "about one a minute, for ever";
}

TEST(LineLadder, GivesUpOnce) {
  Ladder ladder(false, seconds(30));
  ladder.begin(kStart);
  const auto all = climbed(ladder, seconds(300));
  EXPECT_THAT(all.back(), Pair(Rung::give_up, 30000));
  EXPECT_EQ(ladder.taken().back(), 1);
}

TEST(LineLadder, WithoutAPortItOnlyGivesUp) {
  Ladder ladder(true, seconds(30));
  ladder.begin(kStart);
  EXPECT_THAT(climbed(ladder, seconds(60), false), ElementsAre(Pair(Rung::give_up, 30000)));
}

TEST(LineLadder, AReaderThatIsBackEndsItAndTheNextSilenceBeginsBelow) {
  Ladder ladder(false, minutes(5));
  ladder.begin(kStart);
  climbed(ladder, seconds(5));
  ladder.end();
  EXPECT_FALSE(ladder.is_begun());
  EXPECT_THAT(climbed(ladder, seconds(60)), IsEmpty());
  ladder.begin(kStart);
  EXPECT_EQ(ladder.due(kStart, true), Rung::drop_waiting);
}

}  // namespace
}  // namespace line::test
