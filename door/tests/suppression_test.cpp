// The model of the rules on readings: a test for each rule, its facts, and its boundary.
#include "door/why/suppression.h"

#include <functional>

#include "door/tests/suppression_rounds.h"

using namespace achost::why;
using namespace suppression_rounds;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(Suppression, ACardIsExpectedWhenNothingSpeaksAgainstIt) {
  Suppression model(settings_in(Mode::kContinuous), at(0));
  auto verdicts = model.poll(at(100), std::array{kCard});
  ASSERT_EQ(verdicts.size(), 1U);
  EXPECT_TRUE(verdicts[0].expected());
  EXPECT_FALSE(verdicts[0].at_boundary);
  EXPECT_EQ(verdicts[0].would_have_been_from, std::nullopt);
  EXPECT_EQ(model.settle(verdicts, kCard, at(100)), Opinion::kAgrees);
  EXPECT_THAT(names(verdicts[0]), ElementsAre("announced"));
}

TEST(Suppression, TheSameCardIsRefusedUntilItsIntervalAfterTheAnnouncement) {
  Suppression model(settings_in(Mode::kContinuous), at(0));
  reasons(model, at(100), kCard);
  const auto early = first_of(model, at(3100) - kInstant, {kCard});
  EXPECT_THAT(names(early), ElementsAre("same_card_too_soon"));
  EXPECT_EQ(early.reasons[0].since, at(100));
  EXPECT_EQ(early.reasons[0].value, milliseconds(3000));
  EXPECT_EQ(early.would_have_been_from, at(3100));
  EXPECT_THAT(reasons(model, at(3100), kCard), ElementsAre("announced"));
}

TEST(Suppression, AnotherCardIsRefusedUntilItsIntervalAfterTheAnnouncement) {
  Suppression model(settings_in(Mode::kContinuous), at(0));
  reasons(model, at(100), kCard);
  const auto early = first_of(model, at(600) - kInstant, {kOther});
  EXPECT_THAT(names(early), ElementsAre("other_card_too_soon"));
  EXPECT_EQ(early.reasons[0].card, kCard);
  EXPECT_EQ(early.would_have_been_from, at(600));
  EXPECT_THAT(reasons(model, at(600), kOther), ElementsAre("announced"));
}

TEST(Suppression, TheIntervalBetweenCardsIsThatOfTheAnnouncement) {
  auto settings = settings_in(Mode::kContinuous);
  Suppression model(settings, at(0));
  reasons(model, at(100), kCard);
  settings.read_interval_diff_tags = milliseconds(100);
  model.apply(settings, at(110));
  const auto verdict = first_of(model, at(300), {kOther});
  EXPECT_THAT(names(verdict), ElementsAre("other_card_too_soon"));
  EXPECT_EQ(verdict.reasons[0].value, milliseconds(500));
}

TEST(Suppression, TheIntervalOfTheSameCardIsThatOfTheReading) {
  auto settings = settings_in(Mode::kContinuous);
  Suppression model(settings, at(0));
  reasons(model, at(100), kCard);
  settings.read_interval = milliseconds(250);
  model.apply(settings, at(110));
  EXPECT_THAT(reasons(model, at(350), kCard), ElementsAre("announced"));
}

TEST(Suppression, AReadingIsHeldAgainstOthersByItsOwnTimeAndAgainstItselfByThatOfTheRound) {
  Suppression model(settings_in(Mode::kContinuous), at(0));
  reasons(model, at(100), kCard);
  model.read(kCard, at(3000));
  model.read(kOther, at(599));
  const auto verdicts = model.round(at(3100));
  EXPECT_THAT(names(verdicts[0]), IsEmpty());
  EXPECT_THAT(names(verdicts[1]), ElementsAre("other_card_too_soon"));
}

TEST(Suppression, OfTwoReadingsOfACardTheLatestCounts) {
  Suppression model(settings_in(Mode::kContinuous), at(0));
  reasons(model, at(100), kCard);
  model.read(kOther, at(599));
  model.read(kOther, at(600));
  const auto verdicts = model.round(at(610));
  ASSERT_EQ(verdicts.size(), 1U);
  EXPECT_TRUE(verdicts[0].expected());
}

TEST(Suppression, AReadingBeforeTheStartIsRefusedUnlessItsCardIsZero) {
  Suppression model(settings_in(Mode::kContinuous), at(0));
  model.read(kCard, at(0) - kInstant);
  model.read(0, at(0) - kInstant);
  const auto verdicts = model.round(at(0));
  EXPECT_TRUE(verdicts[0].expected());
  EXPECT_THAT(names(verdicts[1]), ElementsAre("read_before_start"));
}

TEST(Suppression, OfSeveralThatAreExpectedOneHasItsTurnAndTheOthersLoseIt) {
  Suppression model(settings_in(Mode::kContinuous), at(0));
  auto verdicts = model.poll(at(100), std::array{kCard, kOther});
  EXPECT_TRUE(verdicts[0].expected() && verdicts[1].expected());
  EXPECT_EQ(model.settle(verdicts, kOther, at(100)), Opinion::kAgrees);
  EXPECT_THAT(names(verdicts[0]), ElementsAre("lost_turn"));
  EXPECT_EQ(verdicts[0].reasons[0].card, kOther);
  EXPECT_EQ(verdicts[0].would_have_been_from, at(600));
  EXPECT_THAT(names(verdicts[1]), ElementsAre("announced"));
}

TEST(Suppression, DisagreesWhenNothingIsAnnouncedThatWasExpected) {
  Suppression model(settings_in(Mode::kContinuous), at(0));
  auto verdicts = model.poll(at(100), std::array{kCard});
  EXPECT_EQ(model.settle(verdicts, std::nullopt, at(100)), Opinion::kDisagrees);
}

TEST(Suppression, DisagreesWhenACardIsAnnouncedThatWasNotExpected) {
  Suppression model(settings_in(Mode::kContinuous), at(0));
  reasons(model, at(100), kCard);
  auto verdicts = model.poll(at(200), std::array{kCard});
  EXPECT_EQ(model.settle(verdicts, kCard, at(200)), Opinion::kDisagrees) << "too soon";
  verdicts = model.poll(at(1000), std::array{kOther});
  EXPECT_EQ(model.settle(verdicts, kCard, at(1000)), Opinion::kDisagrees) << "not read";
}

TEST(Suppression, AnAnnouncementIsRememberedEvenWhenItWasNotExpected) {
  Suppression model(settings_in(Mode::kContinuous), at(0));
  std::vector<Verdict> none;
  model.settle(none, kCard, at(100));
  EXPECT_THAT(reasons(model, at(200), kCard), ElementsAre("same_card_too_soon"));
}

TEST(Suppression, ACardIsForgottenAfterTheLargerOfTheIntervalsThatAreStored) {
  for (const auto& [same, different] : {std::pair(1000, 700), std::pair(700, 1000)}) {
    auto settings = settings_in(Mode::kContinuous);
    Suppression model(settings, at(0));
    reasons(model, at(100), kCard);
    settings.read_interval = milliseconds(same);
    settings.read_interval_diff_tags = milliseconds(different);
    model.store(settings, at(200));  // the one in force stays 3000
    model.round(at(1099));
    EXPECT_THAT(names(model.verdict({kCard, at(1099)}, at(1099))), ElementsAre("same_card_too_soon"));
    model.round(at(1100));
    EXPECT_THAT(names(model.verdict({kCard, at(1100)}, at(1100))), IsEmpty());
    model.round(at(1110));
    EXPECT_EQ(model.cards(), 0U);
  }
}

TEST(Suppression, NobodyIsForgottenWhileReadingsDoNotCount) {
  auto settings = settings_in(Mode::kContinuous);
  Suppression model(settings, at(0));
  reasons(model, at(100), kCard);
  settings.operation_mode = Mode::kUnknown;
  model.apply(settings, at(200));
  model.round(at(60'000));
  EXPECT_EQ(model.cards(), 1U);
}

TEST(Suppression, ARoundThatNobodyToldLeavesADoubt) {
  auto settings = settings_in(Mode::kContinuous);
  Suppression model(settings, at(0));
  reasons(model, at(100), kCard);
  settings.read_interval = milliseconds(10'000);
  model.apply(settings, at(4000));  // a round between 3100 and now would have forgotten it
  const auto verdict = model.verdict({kCard, at(5000)}, at(5000));
  EXPECT_THAT(names(verdict), ElementsAre("same_card_too_soon"));
  EXPECT_TRUE(verdict.at_boundary);
}

TEST(Suppression, AnUnknownModeUsesNoReading) {
  Suppression model(settings_in(Mode::kUnknown), at(0));
  const auto verdict = first_of(model, at(100), {kCard});
  EXPECT_THAT(names(verdict), ElementsAre("mode_unknown"));
  EXPECT_EQ(verdict.would_have_been_from, std::nullopt);
}

TEST(TriggerMode, UsesReadingsForATimeAfterTheInputWentActive) {
  Suppression model(settings_in(Mode::kTrigger), at(0));
  EXPECT_THAT(reasons(model, at(50), kCard), ElementsAre("never_triggered"));
  model.input(1, at(100));
  EXPECT_THAT(reasons(model, at(1100), kCard), ElementsAre("announced")) << "its last instant belongs to it";
  const auto late = first_of(model, at(1100) + kInstant, {kCard});
  EXPECT_THAT(names(late), ElementsAre("window_closed", "same_card_too_soon"));
  EXPECT_EQ(late.reasons[0].since, at(100));
  EXPECT_EQ(late.would_have_been_from, std::nullopt) << "no time opens it";
}

TEST(TriggerMode, UsesNoReadingFromBeforeTheTrigger) {
  Suppression model(settings_in(Mode::kTrigger), at(0));
  model.read(kCard, at(100) - kInstant);
  model.input(1, at(100));
  const auto verdict = model.round(at(105)).at(0);
  EXPECT_THAT(names(verdict), ElementsAre("read_before_trigger"));
  EXPECT_EQ(verdict.would_have_been_from, at(100));
}

TEST(TriggerMode, PromisesNothingBeyondItsWindow) {
  Suppression model(settings_in(Mode::kTrigger), at(0));
  model.input(1, at(100));
  reasons(model, at(110), kCard);
  EXPECT_EQ(first_of(model, at(150), {kCard}).would_have_been_from, std::nullopt);
  EXPECT_EQ(first_of(model, at(200), {kOther}).would_have_been_from, at(610));
}

TEST(TriggerMode, TheActiveLevelIsTheOtherOneThanIdle) {
  for (const auto& [idle, active] : {std::pair(0, 1), std::pair(1, 0), std::pair(7, 0)}) {
    auto settings = settings_in(Mode::kTrigger);
    settings.trig_idle = idle;
    Suppression model(settings, at(0));
    model.input(1 - active, at(100));
    EXPECT_THAT(reasons(model, at(110), kCard), ElementsAre("never_triggered")) << idle;
    model.input(active, at(120));
    EXPECT_THAT(reasons(model, at(130), kCard), ElementsAre("announced")) << idle;
  }
}

TEST(TriggerMode, ShortlyAfterTheMachineHasStartedTheWindowIsOpen) {
  Suppression model(settings_in(Mode::kTrigger), Time(milliseconds(10)));
  EXPECT_THAT(reasons(model, Time(milliseconds(1000)), kCard), ElementsAre("announced"));
  EXPECT_THAT(reasons(model, Time(milliseconds(1001)), kOther), ElementsAre("never_triggered", "other_card_too_soon"));
}

TEST(InhibitMode, UsesReadingsWhileTheInputIsNotActive) {
  Suppression model(settings_in(Mode::kInhibit), at(0));
  EXPECT_THAT(reasons(model, at(50), kCard), ElementsAre("inhibit_unanswered"));
  model.answer(2, at(60));
  EXPECT_THAT(reasons(model, at(70), kCard), ElementsAre("announced")) << "a level that is neither";
  model.input(1, at(4000));
  const auto verdict = first_of(model, at(4100), {kCard});
  EXPECT_THAT(names(verdict), ElementsAre("inhibit_active"));
  EXPECT_EQ(verdict.reasons[0].since, at(4000));
  EXPECT_EQ(verdict.would_have_been_from, std::nullopt);
}

TEST(InhibitMode, ADeadTimeBeginsOnceWhenTheInputGoesIdle) {
  Suppression model(settings_in(Mode::kInhibit), at(0));
  model.input(1, at(100));
  model.input(0, at(200));
  model.input(0, at(700));  // once more, which restarts nothing
  const auto last = first_of(model, at(1200), {kCard});
  EXPECT_THAT(names(last), ElementsAre("dead_time")) << "its last instant belongs to it";
  EXPECT_EQ(last.reasons[0].since, at(200));
  EXPECT_EQ(last.would_have_been_from, at(1200) + kInstant);
  EXPECT_THAT(reasons(model, at(1200) + kInstant, kCard), ElementsAre("announced"));
}

TEST(InhibitMode, GoingIdleWithoutHavingBeenActiveIsNoDeadTime) {
  Suppression model(settings_in(Mode::kInhibit), at(0));
  model.input(0, at(100));
  EXPECT_THAT(reasons(model, at(110), kCard), ElementsAre("announced"));
}

TEST(ANotification, FollowsTheModeThatIsStored) {
  auto settings = settings_in(Mode::kContinuous);
  Suppression model(settings, at(0));
  settings.operation_mode = Mode::kTrigger;
  model.store(settings, at(50));
  model.input(1, at(100));
  model.take(Setting::kOperationMode, at(110));
  EXPECT_THAT(reasons(model, at(200), kCard), ElementsAre("announced"));
}

TEST(ASetting, ThatIsStoredIsInForceOnceItIsTaken) {
  auto settings = settings_in(Mode::kContinuous);
  Suppression model(settings, at(0));
  reasons(model, at(100), kCard);
  settings.read_interval = milliseconds(300);
  model.store(settings, at(110));
  EXPECT_THAT(names(model.verdict({kCard, at(410)}, at(410))), ElementsAre("same_card_too_soon"));
  model.take(Setting::kReadInterval, at(410));
  EXPECT_THAT(names(model.verdict({kCard, at(420)}, at(420))), IsEmpty());
}

TEST(ASetting, IsRaisedToItsLeastValueWhenItIsTaken) {
  auto settings = settings_in(Mode::kContinuous);
  Suppression model(settings, at(0));
  settings.read_interval = settings.read_interval_diff_tags = milliseconds(1);
  model.store(settings, at(10));
  model.take(Setting::kReadInterval, at(20));
  model.take(Setting::kReadIntervalDiffTags, at(20));
  reasons(model, at(100), kCard);
  EXPECT_EQ(model.verdict({kCard, at(110)}, at(110)).reasons[0].until, at(350));
  EXPECT_EQ(model.verdict({kOther, at(110)}, at(110)).reasons[0].until, at(200));
}

TEST(ASetting, ThatIsAppliedIsTakenAsItIs) {
  auto settings = settings_in(Mode::kContinuous);
  settings.read_interval = milliseconds(20);
  Suppression model(settings, at(0));
  reasons(model, at(100), kCard);
  EXPECT_THAT(reasons(model, at(120), kCard), ElementsAre("announced"));
}

TEST(Reasons, ThatHoldAreAllToldTheDecisiveOneFirst) {
  Suppression model(settings_in(Mode::kTrigger), at(0));
  model.input(1, at(100));
  reasons(model, at(200), kOther);
  reasons(model, at(800), kCard);
  model.read(kOther, at(900));
  model.input(1, at(950));
  EXPECT_THAT(names(model.round(at(1960)).at(0)),
              ElementsAre("window_closed", "read_before_trigger", "other_card_too_soon", "same_card_too_soon"));
}

TEST(Reasons, ThatHoldAllEndBeforeItWouldHaveBeenAnnounced) {
  Suppression model(settings_in(Mode::kContinuous), at(0));
  reasons(model, at(200), kCard);
  reasons(model, at(3100), kOther);
  const auto early = first_of(model, at(3150), {kCard});
  EXPECT_THAT(names(early), ElementsAre("other_card_too_soon", "same_card_too_soon"));
  EXPECT_EQ(early.would_have_been_from, at(3600)) << "the same card's ends at 3200 already";
}

TEST(ThePictureOfTheRules, IsRight) {
  using Announced = std::vector<std::pair<Card, int>>;
  const auto announced = [](Suppression& model, const std::vector<Card>& cards, const std::function<void(int)>& input) {
    Announced seen;
    for (int ms = 0; ms < 4000; ms += 100) {
      input(ms);
      if (ms % 200 == 100) {
        auto verdicts = model.poll(at(ms), cards);
        const auto expected = std::ranges::find_if(verdicts, &Verdict::expected);
        if (expected != verdicts.end()) {
          seen.emplace_back(expected->reading.card, ms);
          model.settle(verdicts, expected->reading.card, at(ms));
        }
      }
    }
    return seen;
  };
  auto settings = settings_in(Mode::kContinuous);
  settings.read_interval = milliseconds(2900);
  Suppression continuous(settings, at(0));
  EXPECT_EQ(announced(continuous, {1, 2}, [](int) {}), (Announced{{1, 100}, {2, 700}, {1, 3100}, {2, 3700}}));
  Suppression trigger(settings_in(Mode::kTrigger), at(0));
  const auto push = [&trigger](int ms) { ms == 1000 || ms == 1300 ? trigger.input(ms == 1000, at(ms)) : void(); };
  EXPECT_EQ(announced(trigger, {3}, push), (Announced{{3, 1100}}));
  Suppression inhibit(settings_in(Mode::kInhibit), at(0));
  const auto hold = [&inhibit](int ms) { ms == 0 || ms == 1200 ? inhibit.input(ms == 0, at(ms)) : void(); };
  EXPECT_EQ(announced(inhibit, {4}, hold), (Announced{{4, 2300}}));
}

TEST(Memory, IsBoundedAndWhoHadNoPlaceIsInDoubt) {
  auto settings = settings_in(Mode::kContinuous);
  settings.read_interval_diff_tags = milliseconds(0);
  settings.read_interval = std::chrono::hours(1);
  Suppression model(settings, at(0));
  for (std::size_t i = 0; i <= Suppression::kMostCards; ++i) {
    reasons(model, at(100) + milliseconds(i), kCard + i);
  }
  EXPECT_EQ(model.cards(), Suppression::kMostCards);
  const auto time = at(100'000);
  EXPECT_TRUE(model.verdict({kCard, time}, time).at_boundary) << "the oldest has gone";
  EXPECT_FALSE(model.verdict({kCard + 1, time}, time).at_boundary);
  EXPECT_FALSE(model.verdict({kCard, time + std::chrono::hours(1)}, time + std::chrono::hours(1)).at_boundary);
}

TEST(Memory, OfWhatWaitsIsBounded) {
  Suppression model(settings_in(Mode::kContinuous), at(0));
  for (Card card = 0; card <= Suppression::kMostCards; ++card) {
    model.read(card, at(100));
  }
  model.read(kCard, at(200));
  const auto verdicts = model.round(at(200));
  EXPECT_EQ(verdicts.size(), Suppression::kMostCards);
  EXPECT_EQ(verdicts[kCard].reading.at, at(200)) << "who waits already has a place";
}
