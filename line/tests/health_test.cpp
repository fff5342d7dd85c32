#include "line/health.h"

#include <gtest/gtest.h>

namespace line::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

const Answer kSaidEmpty{.outcome = Outcome::empty, .flaw = {}, .tags = {}};
const Answer kSilence{};
const Answer kBad{.outcome = Outcome::bad, .flaw = Flaw::wrong_checksum, .tags = {}};

class LineHealth : public testing::Test {
 protected:
  // A poll that takes 10 ms.
  void poll(const Answer& answer) {
    watch_.asked(now_);
    now_ += milliseconds(10);
    watch_.answered(now_, answer, true);
  }

  State state() {
    watch_.look(now_);
    return watch_.health().state;
  }

  Clock::time_point now_{seconds(5000)};
  HealthWatch watch_{"/dev/ttyX", now_};
};

TEST_F(LineHealth, AReaderThatAnswersIsAnswering) {
  EXPECT_EQ(state(), State::answering) << "nobody knows yet, and nothing is wrong";
  EXPECT_FALSE(watch_.health().last_good.has_value());
  poll(kSaidEmpty);
  EXPECT_FALSE(watch_.look(now_));
  EXPECT_EQ(watch_.health().state, State::answering);
  EXPECT_EQ(watch_.health().cause, "");
  EXPECT_EQ(watch_.health().last_good, now_);
  EXPECT_FALSE(watch_.look(now_));
}

TEST_F(LineHealth, SilenceCountsFromTheFirstQuestionWithoutAGoodAnswer) {
  poll(kSaidEmpty);
  EXPECT_EQ(state(), State::answering);
  now_ += seconds(20);
  EXPECT_EQ(state(), State::answering) << "nobody asked";
  watch_.asked(now_);
  now_ += kSilentAfter - milliseconds(1);
  watch_.answered(now_, kSilence, true);
  watch_.asked(now_);
  EXPECT_EQ(state(), State::answering);
  now_ += milliseconds(1);
  EXPECT_EQ(state(), State::silent);
  EXPECT_EQ(watch_.health().cause, "the reader at /dev/ttyX does not answer");
  EXPECT_NE(watch_.health().way_out, "");
  poll(kSaidEmpty);
  EXPECT_EQ(state(), State::answering);
}

TEST_F(LineHealth, BadAnswersAloneAreSilenceToo) {
  poll(kSaidEmpty);
  for (int i = 0; i < 151; ++i) {
    poll(kBad);
  }
  EXPECT_EQ(state(), State::silent);
}

TEST_F(LineHealth, MoreThanFivePercentOfBadPollsInTenSecondsAreNoise) {
  for (int i = 0; i < 100; ++i) {
    poll(i % 20 == 0 ? kBad : kSaidEmpty);
  }
  EXPECT_EQ(state(), State::answering) << "five of a hundred";
  poll(kBad);
  poll(kSaidEmpty);
  EXPECT_EQ(state(), State::noisy);
  EXPECT_NE(watch_.health().cause.find("6 % of the polls"), std::string::npos) << watch_.health().cause;
  EXPECT_NE(watch_.health().cause.find("a wrong checksum"), std::string::npos) << watch_.health().cause;
  now_ += seconds(11);
  poll(kSaidEmpty);
  EXPECT_EQ(state(), State::answering) << "they have left the window";
}

TEST_F(LineHealth, OneBadPollOfFewIsNoNoise) {
  for (int i = 0; i < 5; ++i) {
    now_ += seconds(2);
    poll(i == 3 ? kBad : kSaidEmpty);
    EXPECT_EQ(state(), State::answering) << i;
  }
}

TEST_F(LineHealth, AnEmptyFieldAndUnansweredPollsOfAReaderThatLivesRaiseNothing) {
  poll(kSaidEmpty);
  watch_.look(now_);
  for (int i = 0; i < 10000; ++i) {
    poll(kSilence);
    if (i % 70 == 0) {
      watch_.answered(now_, {.outcome = Outcome::answered, .flaw = {}, .tags = {}}, false);
    }
    ASSERT_FALSE(watch_.look(now_)) << i << " " << name_of(watch_.health().state);
  }
}

TEST_F(LineHealth, APortThatHasGoneIsGoneUntilTheReaderAnswersAgain) {
  poll(kSaidEmpty);
  EXPECT_EQ(state(), State::answering);
  watch_.port_gone("the port /dev/ttyX has gone");
  EXPECT_EQ(state(), State::gone);
  EXPECT_EQ(watch_.health().cause, "the port /dev/ttyX has gone");
  watch_.port_back();
  EXPECT_EQ(state(), State::gone);
  poll(kSaidEmpty);
  EXPECT_EQ(state(), State::answering);
}

TEST_F(LineHealth, APortThatIsBackWithAReaderThatSaysNothingIsSilent) {
  poll(kSaidEmpty);
  watch_.port_gone("gone");
  EXPECT_EQ(state(), State::gone);
  watch_.port_back();
  watch_.asked(now_);
  now_ += kSilentAfter;
  EXPECT_EQ(state(), State::silent);
}

TEST_F(LineHealth, WhoHasTheLineIsNamed) {
  poll(kSaidEmpty);
  watch_.asked(now_);
  watch_.lent("uhfctl survey");
  now_ += seconds(60);
  EXPECT_EQ(state(), State::lent);
  EXPECT_EQ(watch_.health().cause, "lent to uhfctl survey");
  watch_.returned();
  EXPECT_EQ(state(), State::lent) << "the reader has not got its settings back yet";
  poll(kSaidEmpty);
  EXPECT_EQ(state(), State::answering);
}

TEST_F(LineHealth, CountsPollsAndTheirRate) {
  for (int i = 0; i < 2000; ++i) {
    poll(i % 4 == 0 ? kBad : i % 4 == 1 ? kSilence : kSaidEmpty);
  }
  state();
  const Health& health = watch_.health();
  EXPECT_EQ(health.polls, 2000U);
  EXPECT_EQ(health.bad_polls, 500U);
  EXPECT_EQ(health.silent_polls, 500U);
  EXPECT_NEAR(health.polls_a_second, 100, 11);
  EXPECT_NEAR(health.bad_share, 0.25, 0.01);
}

TEST(LineHealthTexts, BetweenThePortAndTheFirstAnswerItIsSaidWhatIsWaitedFor) {
  const Clock::time_point now{std::chrono::hours(1)};
  HealthWatch watch("/dev/reader", now);
  watch.port_gone("pulled out");
  watch.look(now);
  watch.port_back();
  watch.look(now);
  EXPECT_EQ(watch.health().cause, "the port is back, and the reader has not answered yet");
  EXPECT_EQ(watch.health().way_out, "");
  watch.lent("somebody");
  watch.look(now);
  watch.returned();
  watch.look(now);
  EXPECT_EQ(watch.health().cause, "the reader gets its settings again");
}

}  // namespace
}  // namespace line::test
