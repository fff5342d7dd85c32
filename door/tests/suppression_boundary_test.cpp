// Where the model of the rules on readings cannot tell which side of a time the plug-in was on.
#include "door/tests/suppression_rounds.h"

using namespace achost::why;
using namespace suppression_rounds;
using testing::ElementsAre;

TEST(Boundary, LiesWithinTwoMillisecondsOfEachTimeThatDecides) {
  Suppression model(settings_in(Mode::kContinuous), at(0));
  reasons(model, at(100), kCard);
  for (const Card card : {kCard, kOther}) {
    const int end = card == kCard ? 3100 : 600;
    for (const auto& [ms, near] :
         {std::pair(-3, false), std::pair(-2, true), std::pair(0, true), std::pair(2, true), std::pair(3, false)}) {
      const auto time = at(end + ms);
      EXPECT_EQ(model.verdict({card, time}, time).at_boundary, near) << card << " " << ms;
    }
  }
}

TEST(Boundary, IsNoneWhileAnotherReasonHoldsAnyway) {
  Suppression model(settings_in(Mode::kContinuous), at(0));
  reasons(model, at(100), kOther);
  reasons(model, at(700), kCard);
  const auto verdict = model.verdict({kOther, at(1201)}, at(1201));
  EXPECT_THAT(names(verdict), ElementsAre("same_card_too_soon"));
  EXPECT_FALSE(verdict.at_boundary) << "the other card's interval ended a millisecond ago, which changes nothing";
}

TEST(Boundary, LiesAtEachChangeOfALevelOrASetting) {
  auto settings = settings_in(Mode::kInhibit);
  settings.trigger_timeout = milliseconds(-5);
  Suppression model(settings, at(0));
  model.input(0, at(100));
  EXPECT_TRUE(model.verdict({kCard, at(102)}, at(102)).at_boundary);
  EXPECT_FALSE(model.verdict({kCard, at(103)}, at(103)).at_boundary);
  settings.read_interval = milliseconds(777);
  model.apply(settings, at(200));
  EXPECT_TRUE(model.verdict({kCard, at(202)}, at(202)).at_boundary);
  EXPECT_FALSE(model.verdict({kCard, at(203)}, at(203)).at_boundary);
}

TEST(Boundary, LiesWhereTheInputHasJustBegunSomething) {
  Suppression trigger(settings_in(Mode::kTrigger), at(0));
  trigger.input(1, at(100));
  trigger.read(kCard, at(150));
  trigger.input(1, at(200));
  EXPECT_TRUE(trigger.round(at(201)).at(0).at_boundary) << "before the second trigger it was to be announced";
  Suppression inhibit(settings_in(Mode::kInhibit), at(0));
  inhibit.answer(0, at(10));
  inhibit.notified(1, at(100));
  inhibit.notified(0, at(200));
  EXPECT_TRUE(inhibit.verdict({kCard, at(202)}, at(202)).at_boundary);
  EXPECT_FALSE(inhibit.verdict({kCard, at(203)}, at(203)).at_boundary) << "in the middle of the dead time";
}

TEST(Boundary, LiesBetweenTwoIntervalsOfAnAnnouncementAtTheirChange) {
  for (const bool is_before : {true, false}) {
    auto settings = settings_in(Mode::kContinuous);
    Suppression model(settings, at(0));
    settings.read_interval_diff_tags = milliseconds(100);
    if (is_before) {
      model.apply(settings, at(99));
    }
    reasons(model, at(100), kCard);
    if (!is_before) {
      model.apply(settings, at(101));
    }
    EXPECT_TRUE(model.verdict({kOther, at(400)}, at(400)).at_boundary) << is_before;
    EXPECT_FALSE(model.verdict({kOther, at(603)}, at(603)).at_boundary) << is_before;
  }
}

TEST(Boundary, LiesWhereACardIsForgotten) {
  auto settings = settings_in(Mode::kContinuous);
  Suppression model(settings, at(0));
  reasons(model, at(100), kCard);
  settings.read_interval = milliseconds(600);
  model.store(settings, at(150));
  EXPECT_FALSE(model.verdict({kCard, at(697)}, at(697)).at_boundary);
  EXPECT_TRUE(model.verdict({kCard, at(698)}, at(698)).at_boundary);
  model.round(at(701));
  EXPECT_TRUE(model.verdict({kCard, at(701)}, at(701)).at_boundary) << "forgotten, but only just";
}

TEST(Boundary, IsTheOpinionOfARoundThatWentTheOtherWayThere) {
  Suppression model(settings_in(Mode::kContinuous), at(0));
  reasons(model, at(100), kCard);
  auto early = model.poll(at(3099), std::array{kCard});
  EXPECT_EQ(model.settle(early, kCard, at(3099)), Opinion::kAtBoundary);
  auto late = model.poll(at(6100), std::array{kCard});
  EXPECT_EQ(model.settle(late, std::nullopt, at(6100)), Opinion::kAtBoundary);
}
