// The model beside a door: what is told in any order, and what it makes of it.
#include "door/why/second_opinion.h"

#include <gmock/gmock.h>

using namespace achost::why;
using testing::ElementsAre;

namespace {

constexpr Card kCard = 1;
constexpr milliseconds kProbeInterval{50};

Time at(double ms) {
  return Time(std::chrono::hours(1000)) +
         std::chrono::duration_cast<Time::duration>(std::chrono::duration<double, std::milli>(ms));
}

Settings settings_in(Mode mode) { return {mode, 0, milliseconds(1000), milliseconds(3000), milliseconds(500)}; }

class SecondOpinionTest : public testing::Test {
 protected:
  // The opinions on all that was told.
  std::vector<Opinion> opinions() {
    std::vector<Opinion> opinions;
    for (const auto& outcome : second.settle(at(1e6))) {
      opinions.push_back(outcome.opinion);
    }
    return opinions;
  }

  SecondOpinion second{settings_in(Mode::kContinuous), kProbeInterval, at(0)};
};

}  // namespace

TEST_F(SecondOpinionTest, AgreesWithAnAnnouncementThatWasExpected) {
  second.poll({kCard}, at(100));
  second.announced(kCard, at(100.3));
  second.poll({kCard}, at(200));
  EXPECT_THAT(opinions(), ElementsAre(Opinion::kAgrees, Opinion::kAgrees));
}

TEST_F(SecondOpinionTest, WaitsForWhatMayStillCome) {
  second.poll({kCard}, at(100));
  EXPECT_TRUE(second.settle(at(100) + SecondOpinion::kPatience - milliseconds(1)).empty());
  EXPECT_EQ(second.settle(at(100) + SecondOpinion::kPatience).size(), 1U);
}

TEST_F(SecondOpinionTest, IsTheSameInWhateverOrderItIsTold) {
  second.announced(kCard, at(100.3));
  second.poll({kCard}, at(3200));
  second.announced(kCard, at(3200.1));
  second.poll({kCard}, at(100));
  EXPECT_THAT(opinions(), ElementsAre(Opinion::kAgrees, Opinion::kAgrees));
}

TEST_F(SecondOpinionTest, AnAnnouncementThatSeemsToComeBeforeItsAnswerIsOfIt) {
  second.announced(kCard, at(99.5));
  second.poll({kCard}, at(100));
  EXPECT_THAT(opinions(), ElementsAre(Opinion::kAgrees));
}

TEST_F(SecondOpinionTest, DisagreesWhenNothingIsAnnounced) {
  second.poll({kCard}, at(100));
  second.poll({}, at(200));
  EXPECT_THAT(opinions(), ElementsAre(Opinion::kDisagrees, Opinion::kAgrees));
}

TEST_F(SecondOpinionTest, DisagreesWithAnAnnouncementThatIsTooSoon) {
  second.poll({kCard}, at(100));
  second.announced(kCard, at(100.3));
  second.poll({kCard}, at(200));
  second.announced(kCard, at(200.3));
  const auto outcomes = second.settle(at(1e6));
  ASSERT_EQ(outcomes.size(), 2U);
  EXPECT_EQ(outcomes[1].opinion, Opinion::kDisagrees);
  EXPECT_EQ(outcomes[1].announced, kCard);
  EXPECT_EQ(outcomes[1].verdicts.at(0).reasons.back().reason, Reason::kSameCardTooSoon) << "and tells why";
}

TEST_F(SecondOpinionTest, DisagreesWithAnAnnouncementOfACardThatWasNotRead) {
  second.announced(kCard, at(100));
  EXPECT_THAT(opinions(), ElementsAre(Opinion::kDisagrees));
}

TEST_F(SecondOpinionTest, AMissedAnswerIsLookedAtAPeriodLater) {
  second.poll({kCard}, at(100));
  second.announced(kCard, at(149));
  const auto outcomes = second.settle(at(1e6));
  EXPECT_EQ(outcomes.at(0).opinion, Opinion::kAgrees);
  EXPECT_EQ(outcomes.at(0).verdicts.at(0).reasons[0].since, at(149));
}

TEST_F(SecondOpinionTest, AnAnnouncementLaterThanAPeriodIsOneOfItsOwn) {
  second.poll({kCard}, at(100));
  second.announced(kCard, at(153));
  EXPECT_THAT(opinions(), ElementsAre(Opinion::kDisagrees, Opinion::kDisagrees));
}

TEST_F(SecondOpinionTest, AMissedAnswerWhoseReasonsHaveChangedMeanwhileIsAtABoundary) {
  second.poll({kCard}, at(100));
  auto settings = settings_in(Mode::kUnknown);
  second.apply(settings, at(120));
  EXPECT_THAT(opinions(), ElementsAre(Opinion::kAtBoundary));
}

TEST_F(SecondOpinionTest, WhatIsExpectedForLongerThanAPeriodIsMissedHoweverManyAnswersThereAre) {
  for (int ms = 100; ms <= 180; ms += 20) {
    second.poll({kCard}, at(ms));
  }
  EXPECT_THAT(opinions(), testing::Contains(Opinion::kDisagrees));
}

TEST_F(SecondOpinionTest, AChangeJustAfterTheRoundPutsItAtABoundary) {
  for (const auto& [after, opinion] : {std::pair(1.5, Opinion::kAtBoundary), std::pair(2.5, Opinion::kDisagrees)}) {
    SecondOpinion one(settings_in(Mode::kUnknown), kProbeInterval, at(0));
    one.poll({kCard}, at(100));
    one.announced(kCard, at(100));
    one.apply(settings_in(Mode::kContinuous), at(100 + after));
    EXPECT_EQ(one.settle(at(1e6)).at(0).opinion, opinion) << after;
  }
}

TEST_F(SecondOpinionTest, TellsTheModelOfInputs) {
  SecondOpinion one(settings_in(Mode::kTrigger), kProbeInterval, at(0));
  one.poll({kCard}, at(100));
  one.input(1, at(150));
  one.poll({kCard}, at(200));
  one.announced(kCard, at(200.2));
  const auto outcomes = one.settle(at(1e6));
  EXPECT_EQ(outcomes.at(0).verdicts.at(0).reasons[0].reason, Reason::kNeverTriggered);
  EXPECT_EQ(outcomes.at(1).opinion, Opinion::kAgrees);
}

TEST_F(SecondOpinionTest, WhatComesTooLateCountsFromTheLatestInstant) {
  second.poll({}, at(1000));
  second.settle(at(2000));
  second.announced(kCard, at(10));
  EXPECT_EQ(second.settle(at(3000)).at(0).at, at(1000));
}

TEST_F(SecondOpinionTest, KeepsABoundedNumberOfEvents) {
  for (std::size_t i = 0; i < SecondOpinion::kMostEvents + 10; ++i) {
    second.poll({}, at(0));
  }
  EXPECT_EQ(second.settle(at(0)).size(), 10U);
}
