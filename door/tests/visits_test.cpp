#include "door/services/visits.h"

#include <gmock/gmock.h>

#include <limits>
#include <thread>

#include "door/services/clock_trust.h"

namespace achost {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using Card = Visits::Card;

constexpr milliseconds kAway{10'000};
constexpr Card kCard = std::numeric_limits<Card>::max();

class VisitsTest : public testing::Test {
 protected:
  static Visits::Time at(std::int64_t time) { return Visits::Time(seconds(1000) + milliseconds(time)); }

  bool is_here(std::int64_t time, Card card = kCard) { return visits.announced(card, at(time), kAway).has_value(); }
  void opens(std::int64_t time, Card card = kCard) {
    EXPECT_FALSE(is_here(time, card)) << time;
    visits.begin(card, at(time));
  }
  void read(std::int64_t time, Card card = kCard) { visits.read(std::array{card}, at(time)); }

  Visits visits;
};

TEST_F(VisitsTest, ACardThatHasNotOpenedIsOnNoVisit) {
  EXPECT_FALSE(is_here(0));
  read(1);
  EXPECT_FALSE(is_here(2));
  EXPECT_TRUE(visits.is_empty());
}

TEST_F(VisitsTest, ACardThatIsReadAgainBeforeTheTimeIsStillHere) {
  opens(0);
  read(3000);
  read(12'900);
  EXPECT_TRUE(is_here(13'000));
}

TEST_F(VisitsTest, AReadingInTimeProlongsWhateverIsAnnounced) {
  opens(0);
  for (std::int64_t time = 9999; time < 10'000'000; time += 9999) {
    read(time);
  }
  EXPECT_TRUE(is_here(10'000'000));
}

TEST_F(VisitsTest, ACardThatWasNotReadForTheTimeHasLeft) {
  opens(0);
  read(1000);
  EXPECT_TRUE(is_here(10'999));
  EXPECT_FALSE(is_here(20'999)) << "an announcement is a reading";
}

// Whichever of the two is told first: that it is read again, or that it is announced.
TEST_F(VisitsTest, ACardThatComesBackLateOpensAlsoWhenItsReadingIsToldBeforeItsAnnouncement) {
  opens(0);
  read(10'000);  // not in time
  EXPECT_FALSE(is_here(10'001));
}

TEST_F(VisitsTest, ACardThatComesBackInTimeIsStillHereAlsoWhenItIsAnnouncedMuchLater) {
  opens(0);
  read(9900);
  read(15'000);
  EXPECT_TRUE(is_here(18'000));
}

TEST_F(VisitsTest, WithoutReadingsAnnouncementsTellAlone) {
  opens(0);
  EXPECT_TRUE(is_here(3000));
  EXPECT_TRUE(is_here(12'000));
  EXPECT_TRUE(is_here(21'999));
  EXPECT_FALSE(is_here(31'999));
}

TEST_F(VisitsTest, AReadingThatIsToldLateChangesNothing) {
  opens(5000);
  read(4000);
  EXPECT_TRUE(is_here(14'999));
}

TEST_F(VisitsTest, WithoutATimeThereAreNone) {
  EXPECT_FALSE(visits.announced(kCard, at(0), milliseconds(0)));
  visits.begin(kCard, at(0));
  EXPECT_TRUE(visits.is_empty());
  opens(1);
  EXPECT_FALSE(visits.announced(kCard, at(2), milliseconds(0))) << "it was set meanwhile";
}

TEST_F(VisitsTest, EachCardHasItsOwn) {
  opens(0, 33);
  opens(1, 34);
  read(9000, 33);
  EXPECT_TRUE(is_here(11'000, 33));
  EXPECT_FALSE(is_here(11'001, 34));
}

TEST_F(VisitsTest, ThatAreOverAreToldOnceAndNotBeforeALateReading) {
  opens(0);
  read(5000);
  EXPECT_THAT(visits.take_over(at(15'999)), IsEmpty()) << "what was read in time may be told a little later";
  EXPECT_THAT(visits.take_over(at(16'000)),
              ElementsAre(Visits::Visit{.card = kCard, .begin = at(0), .last = at(5000)}));
  EXPECT_THAT(visits.take_over(at(30'000)), IsEmpty());
}

TEST_F(VisitsTest, ThatEndedWithAnotherBegunAreToldToo) {
  opens(0);
  opens(12'000);
  EXPECT_THAT(visits.take_over(at(12'001)), ElementsAre(Visits::Visit{.card = kCard, .begin = at(0), .last = at(0)}));
  EXPECT_TRUE(is_here(12'002));
}

TEST_F(VisitsTest, OfTooManyTheOneThatWasReadLongestAgoIsForgotten) {
  for (Card card = 0; card < Visits::kMost; ++card) {
    opens(static_cast<std::int64_t>(card), card);
  }
  read(9000, 0);
  opens(9001, kCard);
  EXPECT_TRUE(is_here(9002, 0));
  EXPECT_TRUE(is_here(9002, 2));
  EXPECT_FALSE(is_here(9002, 1)) << "it opens again, rather than one that has just come";
}

TEST_F(VisitsTest, ManyThreadsMayCall) {
  std::thread reader([&] {
    for (std::int64_t time = 0; time < 20'000; ++time) {
      read(time, static_cast<Card>(time % 8));
    }
  });
  std::thread clock([&] {
    for (std::int64_t time = 0; time < 20'000; time += 20) {
      visits.take_over(at(time));
    }
  });
  for (std::int64_t time = 0; time < 20'000; ++time) {
    if (const auto card = static_cast<Card>(time % 8); !is_here(time, card)) {
      visits.begin(card, at(time));
    }
  }
  reader.join();
  clock.join();
  EXPECT_TRUE(is_here(20'000, 7));
}

TEST(ClockTrustTest, AClockThatShowsLessThanItDidIsNotTrustedUntilItIsPastThat) {
  constexpr std::int64_t kNow = ClockTrust::kFirst + 1'000'000'000;
  ClockTrust clock;
  clock.look(kNow, false);
  EXPECT_TRUE(clock.is_trusted(kNow));
  EXPECT_TRUE(clock.is_trusted(kNow - ClockTrust::kMost)) << "set right by a little";
  EXPECT_FALSE(clock.is_trusted(kNow - ClockTrust::kMost - 1));
  clock.look(kNow - 2 * ClockTrust::kMost, false);
  EXPECT_FALSE(clock.is_trusted(kNow - 2 * ClockTrust::kMost)) << "looking makes it no better";
  EXPECT_TRUE(clock.is_trusted(kNow + 1));
}

TEST(ClockTrustTest, AClockFromBeforeThisProgramOrBeforeWhatIsKnownIsNotTrusted) {
  ClockTrust clock;
  clock.look(0, false);
  EXPECT_FALSE(clock.is_trusted(0));
  EXPECT_TRUE(clock.is_trusted(ClockTrust::kFirst));
  clock.know(ClockTrust::kFirst + 1'000'000'000);
  EXPECT_FALSE(clock.is_trusted(ClockTrust::kFirst));
}

TEST(ClockTrustTest, WhatKeepsAClockRightKnowsBetterThanWhatItShowedBefore) {
  ClockTrust clock;
  clock.look(ClockTrust::kFirst + 1'000'000'000'000, false);
  clock.look(ClockTrust::kFirst + 1000, true);
  EXPECT_TRUE(clock.is_trusted(ClockTrust::kFirst + 1000));
}

}  // namespace
}  // namespace achost
