// The rules by which a reading becomes an identification.
#include "dispatch.h"

#include <gmock/gmock.h>

#include <future>

#include "fake_clock.h"
#include "second_host.h"
#include "settings.h"

using second_host::host;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::ElementsAre;

namespace {

// Before any test has changed it.
const int PROBE_INTERVAL_AT_START = probeInterval;

class Dispatch : public testing::Test {
 protected:
  void SetUp() override {
    host().reset();
    fake_clock::freeze();
    lastCardsRead_.clear();
    lastCardsSent_.clear();
    uhf_operation_mode_ = CONTINUOUS;
    same_tag_timeout_ = 3000;
    different_tag_timeout_ = 500;
    trigger_timeout_ = 1000;
    lastTriggerTimePoint = {};
    watchdogTimeout = 5000;
    nextKeepAlive = fake_clock::now();
    lastSent = {0, fake_clock::now()};
  }
  void TearDown() override { fake_clock::release(); }

  static void read(std::uint64_t card) { lastCardsRead_[card] = fake_clock::now(); }

  // One round of these cards read now; returns the card announced, if any.
  std::optional<std::int64_t> round(const std::vector<std::uint64_t>& cards) {
    for (const auto card : cards) {
      read(card);
    }
    return round();
  }

  std::optional<std::int64_t> round() {
    const auto before = host().messages("identifier_new_card").size();
    processCardsToSend(nextKeepAlive, lastSent);
    const auto messages = host().messages("identifier_new_card");
    if (messages.size() == before) {
      return std::nullopt;
    }
    EXPECT_EQ(messages.size(), before + 1) << "at most one card a round";
    return std::get<std::int64_t>(messages.back().fields.at(1).second);
  }

  TimePoint nextKeepAlive;
  CardReading lastSent;
};

// Whether an action waits for as long as somebody else holds the mutex.
template <class Action>
bool waitsFor(std::mutex& mutex, Action action) {
  std::unique_lock lock(mutex);
  auto done = std::async(std::launch::async, [&action] { action(); });
  const auto soon = std::chrono::system_clock::now() + milliseconds(50);  // the other clock is the test's
  const bool waits = done.wait_until(soon) == std::future_status::timeout;
  lock.unlock();
  done.get();
  return waits;
}

using RepeatRule = Dispatch;
using Pruning = Dispatch;
using TriggerWindow = Dispatch;
using Readings = Dispatch;

}  // namespace

TEST_F(Dispatch, AnnouncesWithFiveFieldsInOrder) {
  ASSERT_EQ(round({0x1200003456}), 0x1200003456);
  const auto message = host().messages("identifier_new_card").at(0);
  const auto uuid = std::get<std::string>(message.fields.at(4).second);
  EXPECT_EQ(message.fields, (second_host::Fields{{"identifier_id", 1969776128},
                                                 {"value", std::int64_t{0x1200003456}},
                                                 {"device_id", std::int64_t{77}},
                                                 {"readings_count", 0},
                                                 {"uuid", uuid}}));
  EXPECT_EQ(message.argument, 0);
  EXPECT_FALSE(message.synchronous);
}

TEST_F(Dispatch, EveryIdentificationHasAUuidOfItsOwn) {
  round({1});
  fake_clock::advance(milliseconds(3000));
  round({1});
  const auto messages = host().messages("identifier_new_card");
  ASSERT_EQ(messages.size(), 2U);
  EXPECT_NE(messages[0].fields.at(4), messages[1].fields.at(4));
}

TEST_F(Dispatch, ACardValueKeepsItsHighestBit) { EXPECT_EQ(round({0xFFFFFFFFFFFFFFFE}), -2); }

TEST_F(Dispatch, AnEmptyRoundDoesNothing) {
  fake_clock::advance(milliseconds(1));
  EXPECT_EQ(round(), std::nullopt);
  EXPECT_TRUE(host().calls().empty()) << "no keep-alive either";
}

TEST_F(Dispatch, TheSameCardIsAnnouncedAgainAtItsTimeoutNotBefore) {
  EXPECT_EQ(round({1}), 1);
  fake_clock::advance(milliseconds(3000) - nanoseconds(1));
  EXPECT_EQ(round({1}), std::nullopt);
  fake_clock::advance(nanoseconds(1));
  EXPECT_EQ(round({1}), 1);
  fake_clock::advance(milliseconds(2999));
  EXPECT_EQ(round({1}), std::nullopt) << "it counts from the latest time";
}

TEST_F(Dispatch, ADifferentCardReadBeforeItsTimeoutIsRefused) {
  EXPECT_EQ(round({1}), 1);
  fake_clock::advance(milliseconds(500) - nanoseconds(1));
  read(2);
  fake_clock::advance(milliseconds(10));
  EXPECT_EQ(round(), std::nullopt) << "the time of the reading counts, not that of the round";
  EXPECT_EQ(round({2}), 2);
}

TEST_F(Dispatch, ADifferentCardReadAtItsTimeoutIsAnnounced) {
  EXPECT_EQ(round({1}), 1);
  fake_clock::advance(milliseconds(500));
  EXPECT_EQ(round({2}), 2);
}

TEST_F(Dispatch, TheDifferentCardTimeoutThatCountsIsThatOfTheSend) {
  EXPECT_EQ(round({1}), 1);
  different_tag_timeout_ = 0;
  fake_clock::advance(milliseconds(100));
  EXPECT_EQ(round({2}), std::nullopt);
}

TEST_F(Dispatch, TheSameCardTimeoutThatCountsIsThatOfTheRound) {
  EXPECT_EQ(round({1}), 1);
  same_tag_timeout_ = 50;
  fake_clock::advance(milliseconds(50));
  EXPECT_EQ(round({1}), 1);
}

TEST_F(Dispatch, OfTwoCardsTheFirstInMapOrderIsAnnouncedAndTheOtherDropped) {
  CardTimes cards{{1, fake_clock::now()}, {2, fake_clock::now()}};
  lastCardsRead_ = cards;
  const auto first = static_cast<std::int64_t>(lastCardsRead_.begin()->first);
  EXPECT_EQ(round(), first);
  fake_clock::advance(milliseconds(500));
  EXPECT_EQ(round(), std::nullopt) << "it must be read again";
  EXPECT_EQ(round({static_cast<std::uint64_t>(3 - first)}), 3 - first);
}

TEST_F(Dispatch, OneCardARoundIsAnnouncedEvenWithoutATimeoutBetweenCards) {
  different_tag_timeout_ = 0;
  ASSERT_NE(round({1, 2, 3}), std::nullopt);
  EXPECT_EQ(host().messages("identifier_new_card").size(), 1U);
}

TEST_F(Dispatch, ACardThatMayNotBeAnnouncedDoesNotHideAnother) {
  EXPECT_EQ(round({1}), 1);
  fake_clock::advance(milliseconds(600));
  EXPECT_EQ(round({1, 2}), 2);
}

TEST_F(Dispatch, RemembersTheDecisionsTimeNotTheReadings) {
  read(1);
  fake_clock::advance(milliseconds(40));
  EXPECT_EQ(round(), 1);
  EXPECT_EQ(lastCardsSent_.at(1), fake_clock::now());
  EXPECT_EQ(lastSent, CardReading(1, fake_clock::now() + milliseconds(500)));
}

TEST_F(Dispatch, TheTimeRememberedIsTheOneTheRuleSaw) {
  read(1);
  const auto start = fake_clock::now();
  nextKeepAlive = start + milliseconds(1000);
  fake_clock::tick_per_reading(milliseconds(1));
  EXPECT_EQ(round(), 1);
  EXPECT_EQ(lastCardsSent_.at(1), start) << "one reading of the clock an entry";
  EXPECT_EQ(lastSent.second, start + milliseconds(500));
}

TEST_F(Dispatch, KeepsItselfAliveWhileItWalks) {
  watchdogTimeout = 5000;
  nextKeepAlive = fake_clock::now();
  round({1});
  EXPECT_EQ(host().keep_alives("uhf_write_threads"), 0U) << "due means strictly past";
  fake_clock::advance(nanoseconds(1));
  round({1});
  EXPECT_EQ(host().keep_alives("uhf_write_threads"), 1U);
  EXPECT_EQ(nextKeepAlive, fake_clock::now() + milliseconds(5000));
}

TEST_F(RepeatRule, AtStartAnyCardReadSinceThenIsAccepted) {
  EXPECT_TRUE(shouldSentCardIdentification(lastSent, fake_clock::now(), {9, fake_clock::now()}));
  EXPECT_FALSE(shouldSentCardIdentification(lastSent, fake_clock::now(), {9, fake_clock::now() - nanoseconds(1)}));
}

TEST_F(RepeatRule, CardZeroSkipsTheDifferentCardRuleAtStart) {
  EXPECT_TRUE(shouldSentCardIdentification(lastSent, fake_clock::now(), {0, fake_clock::now() - milliseconds(5)}));
}

TEST_F(RepeatRule, AReadingBeforeTheTriggerNeverCounts) {
  uhf_operation_mode_ = TRIGGER;
  lastTriggerTimePoint = fake_clock::now();
  lastSent.second = {};
  EXPECT_FALSE(shouldSentCardIdentification(lastSent, fake_clock::now(), {9, fake_clock::now() - nanoseconds(1)}));
  EXPECT_TRUE(shouldSentCardIdentification(lastSent, fake_clock::now(), {9, fake_clock::now()}));
}

TEST_F(RepeatRule, TheTriggerMattersInTriggerModeOnly) {
  lastTriggerTimePoint = fake_clock::now() + milliseconds(1);
  for (const int mode : {INHIBIT, CONTINUOUS}) {
    uhf_operation_mode_ = mode;
    EXPECT_TRUE(shouldSentCardIdentification(lastSent, fake_clock::now(), {9, fake_clock::now()})) << mode;
  }
}

TEST_F(RepeatRule, TheSameCardTimeoutIsHeldAgainstNowNotTheReading) {
  lastCardsSent_[9] = fake_clock::now() - milliseconds(3000);
  lastSent = {9, fake_clock::now()};
  EXPECT_TRUE(shouldSentCardIdentification(lastSent, fake_clock::now(), {9, fake_clock::now() - milliseconds(10)}));
}

TEST_F(RepeatRule, ACardAnnouncedBeforeTheLastIsHeldAgainstBothTimeouts) {
  lastCardsSent_[9] = fake_clock::now() - milliseconds(2999);
  lastSent = {8, fake_clock::now()};
  EXPECT_FALSE(shouldSentCardIdentification(lastSent, fake_clock::now(), {9, fake_clock::now()}));
  lastCardsSent_[9] = fake_clock::now() - milliseconds(3000);
  EXPECT_TRUE(shouldSentCardIdentification(lastSent, fake_clock::now(), {9, fake_clock::now()}));
  lastSent.second += nanoseconds(1);
  EXPECT_FALSE(shouldSentCardIdentification(lastSent, fake_clock::now(), {9, fake_clock::now()}));
}

TEST_F(TriggerWindow, ItsLastInstantBelongsToIt) {
  lastTriggerTimePoint = fake_clock::now();
  EXPECT_TRUE(isTriggerWindowOpen());
  fake_clock::advance(milliseconds(1000));
  EXPECT_TRUE(isTriggerWindowOpen());
  fake_clock::advance(nanoseconds(1));
  EXPECT_FALSE(isTriggerWindowOpen());
}

TEST_F(TriggerWindow, OfTheLongestSettingDoesNotOverflow) {
  lastTriggerTimePoint = fake_clock::now();
  trigger_timeout_ = 2147483647;
  fake_clock::advance(std::chrono::hours(24));
  EXPECT_TRUE(isTriggerWindowOpen());
}

TEST_F(TriggerWindow, OfANegativeSettingIsClosed) {
  lastTriggerTimePoint = fake_clock::now();
  trigger_timeout_ = -1;
  EXPECT_FALSE(isTriggerWindowOpen());
}

TEST_F(TriggerWindow, IsAskedForUnderTheMutexOfItsTime) {
  EXPECT_TRUE(waitsFor(lastTriggerTimePointMutex, isTriggerWindowOpen));
}

TEST(ProbeInterval, Is10MillisecondsAtStart) { EXPECT_EQ(PROBE_INTERVAL_AT_START, 10); }

TEST_F(Readings, AreTakenAndDroppedUnderTheirMutex) {
  EXPECT_TRUE(waitsFor(cardsReadMutex_, getLastCardsRead));
  EXPECT_TRUE(waitsFor(cardsReadMutex_, clearLastCardsRead));
}

TEST_F(Readings, AreTakenInOnePiece) {
  read(1);
  read(2);
  EXPECT_EQ(getLastCardsRead(), (CardTimes{{1, fake_clock::now()}, {2, fake_clock::now()}}));
  EXPECT_TRUE(lastCardsRead_.empty());
  EXPECT_EQ(lastCardsRead_.bucket_count(), 1U);
}

TEST_F(Readings, KeepTheirBucketsWhenDropped) {
  for (std::uint64_t card = 0; card < 100; ++card) {
    read(card);
  }
  const auto buckets = lastCardsRead_.bucket_count();
  clearLastCardsRead();
  EXPECT_TRUE(lastCardsRead_.empty());
  EXPECT_EQ(lastCardsRead_.bucket_count(), buckets);
}

TEST_F(Pruning, ForgetsACardAtItsBoundNotBefore) {
  host().set("read_interval", 100);
  host().set("read_interval_diff_tags", 200);
  lastCardsSent_[1] = fake_clock::now();
  fake_clock::advance(milliseconds(200) - nanoseconds(1));
  pruneCardsSent();
  EXPECT_TRUE(lastCardsSent_.contains(1));
  fake_clock::advance(nanoseconds(1));
  pruneCardsSent();
  EXPECT_TRUE(lastCardsSent_.empty());
}

TEST_F(Pruning, ReadsTheIntervalsAfreshEachTime) {
  host().set("read_interval", 1000);
  host().set("read_interval_diff_tags", 0);
  lastCardsSent_[1] = fake_clock::now();
  fake_clock::advance(milliseconds(500));
  pruneCardsSent();
  EXPECT_TRUE(lastCardsSent_.contains(1));
  host().set("read_interval", 500);
  pruneCardsSent();
  EXPECT_TRUE(lastCardsSent_.empty());
}
