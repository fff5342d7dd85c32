// Readings as they pass on the line, announcements as they come, and what is told of them.
#include "door/why/witness.h"

#include <gmock/gmock.h>

#include <numeric>

#include "line/frames.h"

namespace achost::why {
namespace {

using line::Bytes;
using line::Code;
using line::FrameType;
using std::chrono::hours;
using std::chrono::microseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const Time kStart{hours(1)};              // of the plug-in
const Time kBegin = kStart + seconds(1);  // of the polls
const Bytes kFirst{0xE2, 0, 0, 33};
const Bytes kSecond{0xE2, 0, 0, 44};
constexpr Card kCard = 33;
constexpr Card kOther = 44;
constexpr milliseconds kProbeInterval{17};

Bytes report(const Bytes& epc, std::uint8_t rssi = 200) {
  Bytes parameters{rssi, 0x30, 0};
  parameters.insert(parameters.end(), epc.begin(), epc.end());
  parameters.insert(parameters.end(), {0, 0});
  return frame_of(FrameType::notice, Code::inventory, parameters);
}

const Bytes kNothingRead = frame_of(FrameType::response, Code::failure, Bytes{0x17});

line::Exchange poll(Time at, const std::vector<Bytes>& frames) {
  line::Exchange exchange;
  exchange.code = Code::inventory;
  for (const Bytes& frame : frames) {
    exchange.bytes.insert(exchange.bytes.end(), frame.begin(), frame.end());
  }
  exchange.answer = answer_of(Code::inventory, exchange.bytes);
  exchange.asked = at - milliseconds(3);
  exchange.last_byte = at;
  return exchange;
}

class WitnessTest : public testing::Test {
 protected:
  static WitnessSettings settings() {
    return {.rules = {.read_interval = seconds(3), .read_interval_diff_tags = milliseconds(500)},
            .probe_interval = kProbeInterval,
            .identification_bits = 8,
            .reader_type = "msb"};
  }

  // Each 20 ms.
  void poll_until(Time end, const std::vector<Bytes>& frames) {
    for (; now_ < end; now_ += milliseconds(20)) {
      witness_.saw(poll(now_, frames));
      witness_.pass(now_);
    }
  }
  void announce(Card card) { witness_.announced(card, now_ - milliseconds(20) + microseconds(200)); }

  // Until all that has happened is known.
  std::vector<Sighting> sightings() {
    witness_.pass(now_ + SecondOpinion::kPatience);
    return witness_.sightings();
  }
  Sighting only_one() {
    const auto all = sightings();
    EXPECT_THAT(all, SizeIs(1));
    return all.empty() ? Sighting{} : all.front();
  }

  static std::vector<std::pair<Reason, std::int64_t>> fates(const Sighting& sighting) {
    std::vector<std::pair<Reason, std::int64_t>> all;
    for (const Fate& fate : sighting.fates) {
      all.emplace_back(fate.reasons.front().reason, fate.polls);
    }
    return all;
  }

  Time now_ = kBegin;
  std::vector<Sighting> over_;
  std::vector<Disagreement> disagreements_;
  Witness witness_{settings(), kStart, [this](const Sighting& one) { over_.push_back(one); },
                   [this](const Disagreement& one) { disagreements_.push_back(one); }};
};

TEST_F(WitnessTest, ACardIsAnnouncedAndThenReadTooSoon) {
  poll_until(kBegin + milliseconds(20), {report(kFirst, 180)});
  announce(kCard);
  poll_until(kBegin + seconds(1), {report(kFirst, 210)});
  const auto sighting = only_one();
  EXPECT_EQ(sighting.epc, kFirst);
  EXPECT_EQ(sighting.card, kCard);
  EXPECT_EQ(sighting.polls, 50);
  EXPECT_EQ(sighting.rssi, 210);
  EXPECT_EQ(sighting.first, kBegin);
  EXPECT_EQ(sighting.last, kBegin + milliseconds(980));
  EXPECT_THAT(fates(sighting), ElementsAre(std::pair(Reason::kAnnounced, 1), std::pair(Reason::kSameCardTooSoon, 49)));
  EXPECT_EQ(sighting.fates[1].from, kBegin + milliseconds(20));
  EXPECT_EQ(sighting.fates[1].to, kBegin + milliseconds(980));
  sightings();
  EXPECT_THAT(disagreements_, IsEmpty());
}

TEST_F(WitnessTest, EachAnnouncementBeginsAChapter) {
  for (int i = 0; i < 3; ++i) {
    poll_until(now_ + milliseconds(20), {report(kFirst)});
    announce(kCard);
    poll_until(now_ + milliseconds(2960), {report(kFirst)});
    now_ += milliseconds(30);
  }
  EXPECT_THAT(fates(only_one()),
              ElementsAre(std::pair(Reason::kAnnounced, 1), std::pair(Reason::kSameCardTooSoon, 148),
                          std::pair(Reason::kAnnounced, 1), std::pair(Reason::kSameCardTooSoon, 148),
                          std::pair(Reason::kAnnounced, 1), std::pair(Reason::kSameCardTooSoon, 148)));
  sightings();
  EXPECT_THAT(disagreements_, IsEmpty());
}

TEST_F(WitnessTest, AnAnnouncementThatIsDueAndDoesNotComeIsADisagreement) {
  poll_until(kBegin + seconds(1), {report(kFirst)});
  ASSERT_FALSE(disagreements_.empty());
  EXPECT_EQ(disagreements_.front().card, kCard);
  EXPECT_FALSE(disagreements_.front().was_announced);
  EXPECT_LE(disagreements_.front().at, kBegin + 2 * Witness::kLate);
  EXPECT_EQ(fates(only_one()).front().first, Reason::kUnexplained);
}

TEST_F(WitnessTest, AnAnnouncementMayComeARoundLater) {
  poll_until(kBegin + milliseconds(40), {report(kFirst)});
  announce(kCard);
  poll_until(kBegin + milliseconds(200), {report(kFirst)});
  EXPECT_THAT(disagreements_, IsEmpty());
  EXPECT_THAT(fates(only_one()), ElementsAre(std::pair(Reason::kAnnounced, 2), std::pair(Reason::kSameCardTooSoon, 8)));
}

TEST_F(WitnessTest, AnAnnouncementThatIsNotToBeIsADisagreementWithItsReasons) {
  poll_until(kBegin + milliseconds(20), {report(kFirst)});
  announce(kCard);
  poll_until(kBegin + seconds(1), {report(kFirst)});
  announce(kCard);
  sightings();
  ASSERT_THAT(disagreements_, SizeIs(1));
  EXPECT_TRUE(disagreements_.front().was_announced);
  ASSERT_THAT(disagreements_.front().reasons, SizeIs(1));
  EXPECT_EQ(disagreements_.front().reasons.front().reason, Reason::kSameCardTooSoon);
}

TEST_F(WitnessTest, AnAnnouncementOfACardThatNobodyHasReadIsADisagreement) {
  poll_until(kBegin + milliseconds(200), {kNothingRead});
  announce(kCard);
  sightings();
  ASSERT_THAT(disagreements_, SizeIs(1));
  EXPECT_THAT(disagreements_.front().reasons, IsEmpty());
}

TEST_F(WitnessTest, AnAnnouncementNearABoundaryIsNone) {
  poll_until(kBegin + milliseconds(20), {report(kFirst)});
  announce(kCard);
  poll_until(kBegin + milliseconds(2990), {report(kFirst)});
  witness_.saw(poll(kBegin + milliseconds(2999), {report(kFirst)}));
  witness_.announced(kCard, kBegin + milliseconds(2999));
  sightings();
  EXPECT_THAT(disagreements_, IsEmpty());
}

TEST_F(WitnessTest, AnAnnouncementOfAReadingThatWasNotedLateIsNone) {
  poll_until(kBegin + milliseconds(20), {report(kFirst)});
  announce(kCard);
  // Another card may be announced from 500 ms on; it was read 10 ms before, and the next question is as much too late.
  for (const auto& [late, disagrees] : {std::pair(milliseconds(0), true), {milliseconds(15), false}}) {
    poll_until(now_ + milliseconds(20), {report(kFirst)});
    announce(kCard);
    now_ += milliseconds(470);
    witness_.saw(poll(now_, {report(kSecond)}));
    witness_.announced(kOther, now_ + milliseconds(11));
    auto next = poll(now_ + milliseconds(23) + late, {kNothingRead});
    next.asked = now_ + kProbeInterval + late;
    witness_.saw(next);
    now_ += milliseconds(600);
    witness_.pass(now_);
    EXPECT_EQ(disagreements_.size(), 1U) << (disagrees ? "it was noted at once" : "it was noted late");
    now_ += seconds(4);
  }
}

TEST_F(WitnessTest, OneOfTwoCardsLosesItsTurnAndIsThenTooSoonAfterTheOther) {
  witness_.saw(poll(now_, {report(kFirst), report(kFirst), report(kFirst), report(kSecond)}));
  now_ += milliseconds(20);
  announce(kCard);
  poll_until(kBegin + milliseconds(200), {kNothingRead, report(kFirst), report(kSecond)});
  const auto all = sightings();
  ASSERT_THAT(all, SizeIs(2));
  const auto& second = all[0].card == kOther ? all[0] : all[1];
  EXPECT_THAT(fates(second), ElementsAre(std::pair(Reason::kLostTurn, 1), std::pair(Reason::kOtherCardTooSoon, 9)));
  sightings();
  EXPECT_THAT(disagreements_, IsEmpty());
}

TEST_F(WitnessTest, TheFirstHalfOfAnAnswerIsNotUsed) {
  poll_until(kBegin + milliseconds(100), {report(kFirst), report(kSecond)});
  announce(kOther);
  const auto all = sightings();
  ASSERT_THAT(all, SizeIs(2));
  const auto& first = all[0].card == kCard ? all[0] : all[1];
  ASSERT_THAT(fates(first), ElementsAre(std::pair(Reason::kHalfNotUsed, 5)));
  EXPECT_EQ(first.fates[0].number, 1U);
  EXPECT_EQ(first.fates[0].count, 2U);
}

TEST_F(WitnessTest, OfWhatCameBeforeABadFrameTheFirstHalfIsNotUsed) {
  Bytes bad = report(kSecond);
  bad[bad.size() - 2] ^= 1U;
  poll_until(kBegin + milliseconds(100), {report(kFirst), report(kSecond), bad});
  announce(kOther);
  const auto all = sightings();
  ASSERT_THAT(all, SizeIs(2));
  const auto& first = all[0].card == kCard ? all[0] : all[1];
  EXPECT_THAT(fates(first), ElementsAre(std::pair(Reason::kHalfNotUsed, 5)));
}

TEST_F(WitnessTest, AResponseInTheHalfThatCountsSpoilsIt) {
  poll_until(kBegin + milliseconds(100), {report(kFirst), kNothingRead});
  poll_until(kBegin + milliseconds(200), {report(kFirst), report(kFirst), kNothingRead});
  EXPECT_THAT(fates(only_one()), ElementsAre(std::pair(Reason::kHalfNotUsed, 10), std::pair(Reason::kAnswerEnded, 5)));
  sightings();
  EXPECT_THAT(disagreements_, IsEmpty());
}

TEST_F(WitnessTest, WhatComesAfterABadFrameIsNotUsedNorWhatHasNoEnd) {
  Bytes bad = report(kSecond);
  bad[bad.size() - 2] ^= 1U;
  poll_until(kBegin + milliseconds(100), {bad, report(kFirst)});
  poll_until(kBegin + milliseconds(200), {report(kFirst), Bytes{0x7F, 2}});
  EXPECT_THAT(fates(only_one()), ElementsAre(std::pair(Reason::kBadFrame, 10)));
  sightings();
  EXPECT_THAT(disagreements_, IsEmpty());
}

TEST_F(WitnessTest, AnAnswerInPiecesSaysSoAndIsNoDisagreement) {
  for (int i = 0; i < 10; ++i, now_ += milliseconds(20)) {
    auto exchange = poll(now_, {report(kSecond), report(kFirst)});
    exchange.may_have_seemed_whole = true;
    witness_.saw(exchange);
  }
  auto all = sightings();
  ASSERT_THAT(all, SizeIs(2));
  EXPECT_THAT(fates(all[0].card == kCard ? all[0] : all[1]), ElementsAre(std::pair(Reason::kAnswerInPieces, 10)));
  announce(kCard);
  sightings();
  EXPECT_THAT(disagreements_, IsEmpty());
}

TEST_F(WitnessTest, OfTwoTagsThatAreOneCardTheLatestReadingCounts) {
  const Bytes same{0xE2, 1, 1, 33};
  witness_.saw(poll(kBegin, {report(kFirst)}));
  witness_.announced(kCard, kBegin + microseconds(200));
  witness_.saw(poll(kBegin + seconds(4), {report(kSecond)}));
  witness_.announced(kOther, kBegin + seconds(4) + microseconds(200));
  const Time too_soon = kBegin + seconds(4) + milliseconds(480);
  now_ = too_soon + milliseconds(24);
  witness_.saw(poll(too_soon, {kNothingRead, report(kFirst)}));
  witness_.saw(poll(now_, {kNothingRead, report(same)}));
  witness_.announced(kCard, now_ + microseconds(200));
  sightings();
  EXPECT_THAT(disagreements_, IsEmpty());
}

TEST_F(WitnessTest, NothingIsDueOnceASettingHasChangedSinceTheAnswer) {
  auto changed = settings();
  changed.rules.operation_mode = Mode::kUnknown;
  witness_.saw(poll(kBegin, {report(kFirst)}));
  witness_.apply(changed, kBegin + milliseconds(10));  // and the plug-in, which missed the answer, looks now
  sightings();
  EXPECT_THAT(disagreements_, IsEmpty());
}

TEST_F(WitnessTest, NothingIsDueOnceTheLevelHasChangedSinceTheAnswer) {
  auto inhibit = settings();
  inhibit.rules.operation_mode = Mode::kInhibit;
  witness_.apply(inhibit, kStart);
  witness_.answer(0, kStart);
  witness_.saw(poll(kBegin, {report(kFirst)}));
  witness_.input(1, kBegin + milliseconds(10));
  sightings();
  EXPECT_THAT(disagreements_, IsEmpty());
}

TEST_F(WitnessTest, AChangeIsNoExcuseForAnAnnouncementThatWasDueLongBefore) {
  auto changed = settings();
  changed.rules.operation_mode = Mode::kUnknown;
  witness_.saw(poll(kBegin, {report(kFirst)}));
  witness_.apply(changed, kBegin + milliseconds(200));
  sightings();
  witness_.pass(kBegin + seconds(1));
  ASSERT_THAT(disagreements_, SizeIs(1));
  EXPECT_FALSE(disagreements_.front().was_announced);
}

TEST_F(WitnessTest, ALevelThatWasNotifiedToNobodyTriggersNothing) {
  for (const bool is_notified : {false, true}) {
    disagreements_.clear();
    auto trigger = settings();
    trigger.rules.operation_mode = Mode::kTrigger;
    trigger.rules.trigger_timeout = seconds(1);
    witness_.apply(trigger, now_);
    is_notified ? witness_.input(1, now_) : witness_.answer(1, now_);
    now_ += milliseconds(10);
    witness_.saw(poll(now_, {report(kFirst)}));
    now_ += milliseconds(200);
    sightings();
    EXPECT_THAT(disagreements_, SizeIs(is_notified ? 1 : 0));
  }
}

TEST_F(WitnessTest, AnAnswerFromBeforeAChangeOfTheCardValuesMayBeToldAfterIt) {
  auto changed = settings();
  changed.identification_bits = 16;
  witness_.apply(changed, kBegin + milliseconds(10));
  witness_.saw(poll(kBegin, {report({0xE2, 0, 1, 33})}));
  witness_.announced(kCard, kBegin + microseconds(200));
  sightings();
  witness_.pass(kBegin + seconds(1));
  EXPECT_THAT(disagreements_, IsEmpty());
  witness_.announced(kCard, kBegin + seconds(1));
  witness_.pass(kBegin + seconds(2));
  EXPECT_THAT(disagreements_, SizeIs(1)) << "long after it, nothing is forgiven";
}

TEST_F(WitnessTest, ACardThatIsNotReadForTwoSecondsAndTwoPollsHasLeft) {
  poll_until(kBegin + milliseconds(20), {report(kFirst)});
  announce(kCard);
  witness_.pass(kBegin + seconds(3));
  EXPECT_THAT(over_, IsEmpty()) << "nobody has polled";
  now_ = kBegin + seconds(3);
  poll_until(now_ + milliseconds(40), {kNothingRead});
  witness_.pass(now_);
  ASSERT_THAT(over_, SizeIs(1));
  EXPECT_EQ(over_.front().last, kBegin);
  EXPECT_FALSE(over_.front().goes_on);
  EXPECT_THAT(witness_.sightings(), IsEmpty());
}

TEST_F(WitnessTest, ACardThatStaysIsToldEachMinute) {
  witness_.apply({.rules = {.read_interval = hours(1)}, .identification_bits = 8, .reader_type = ""}, kBegin);
  poll_until(kBegin + milliseconds(20), {report(kFirst)});
  announce(kCard);
  poll_until(kBegin + seconds(121), {report(kFirst)});
  ASSERT_THAT(over_, SizeIs(2));
  for (const auto& part : over_) {
    EXPECT_TRUE(part.goes_on);
    EXPECT_EQ(part.last - part.first, std::chrono::minutes(1));
  }
  witness_.end();
  ASSERT_THAT(over_, SizeIs(3));
  EXPECT_FALSE(over_.back().goes_on);
  EXPECT_EQ(over_[0].polls + over_[1].polls + over_[2].polls, 121 * 50);
}

// A field that came to be at once.
TEST_F(WitnessTest, OfManyThatAreOverAFewAreToldAtATimeAndAllAreTold) {
  constexpr std::size_t kCards = 300;
  witness_.apply({.rules = {.read_interval = hours(1)}, .identification_bits = 16, .reader_type = "msb"}, kBegin);
  std::vector<Bytes> frames;
  for (std::size_t i = 0; i < kCards; ++i) {
    frames.push_back(report({0xE2, 0, static_cast<std::uint8_t>(i >> 8U), static_cast<std::uint8_t>(i)}));
  }
  const auto tell_some = [&] {
    const auto before = over_.size();
    witness_.pass(now_);
    EXPECT_LE(over_.size() - before, kCards / 10) << now_ - kBegin;
  };
  for (; now_ < kBegin + std::chrono::minutes(2); now_ += seconds(1)) {
    witness_.saw(poll(now_, frames));
    tell_some();
  }
  EXPECT_GE(over_.size(), kCards) << "of the first minute";
  over_.clear();
  now_ += seconds(60);  // nobody has polled for long
  for (std::size_t i = 0; i < kCards; ++i) {
    tell_some();
    EXPECT_TRUE(witness_.has_more_to_tell() || over_.size() == kCards) << "so that they are soon";
  }
  EXPECT_FALSE(witness_.has_more_to_tell());
  EXPECT_EQ(over_.size(), kCards);
  EXPECT_THAT(witness_.sightings(), IsEmpty());
}

TEST_F(WitnessTest, ACardThatComesBackBeforeItWasToldToHaveLeftIsAnotherSighting) {
  poll_until(kBegin + milliseconds(20), {report(kFirst)});
  announce(kCard);
  witness_.pass(kBegin + seconds(1));
  now_ = kBegin + seconds(10);
  witness_.saw(poll(now_, {kNothingRead}));
  witness_.saw(poll(now_ + milliseconds(20), {report(kFirst)}));
  witness_.pass(now_ + milliseconds(20));
  ASSERT_THAT(over_, SizeIs(1));
  EXPECT_EQ(over_.front().last, kBegin);
  EXPECT_FALSE(over_.front().goes_on);
  now_ += milliseconds(40);
  EXPECT_EQ(only_one().first, kBegin + seconds(10) + milliseconds(20));
}

// Who replays a recording looks at another pace than the door did.
TEST_F(WitnessTest, WhatIsToldDoesNotDependOnHowOftenSomebodyLooks) {
  const std::vector<Bytes> frames{report(kFirst), report(kSecond), report(kFirst)};
  const auto told_at = [&](seconds pace) {
    std::vector<Sighting> told;
    Witness witness(
        settings(), kStart, [&told](const Sighting& one) { told.push_back(one); }, [](const Disagreement&) {});
    auto next = kBegin;
    for (auto now = kBegin; now < kBegin + seconds(130); now += milliseconds(20)) {
      witness.saw(poll(now, frames));
      if (now >= next) {
        witness.pass(now);
        next = now + pace;
      }
    }
    witness.end();
    std::ranges::sort(told, {}, [](const Sighting& one) { return std::pair(one.first, one.epc); });
    return told;
  };
  const auto often = told_at(seconds(0));
  const auto seldom = told_at(seconds(3));
  ASSERT_EQ(often.size(), seldom.size());
  EXPECT_GT(often.size(), 4U);
  for (std::size_t i = 0; i < often.size(); ++i) {
    EXPECT_EQ(often[i].first, seldom[i].first) << i;
    EXPECT_EQ(often[i].last, seldom[i].last) << i;
    EXPECT_EQ(often[i].polls, seldom[i].polls) << i;
    EXPECT_EQ(often[i].fates.size(), seldom[i].fates.size()) << i;
  }
}

TEST_F(WitnessTest, TheFatesOfASightingAddUpToItsPolls) {
  poll_until(kBegin + seconds(30), {report(kFirst), report(kSecond), report(kFirst)});
  witness_.end();
  for (const auto& one : over_) {
    EXPECT_EQ(std::accumulate(one.fates.begin(), one.fates.end(), std::int64_t{0},
                              [](std::int64_t sum, const Fate& fate) { return sum + fate.polls; }),
              one.polls);
    EXPECT_LE(one.fates.size(), Witness::kMostFates + 4);
  }
}

TEST_F(WitnessTest, AnotherCardValueIsAnotherSighting) {
  poll_until(kBegin + milliseconds(20), {report(kFirst)});
  announce(kCard);
  auto other = settings();
  other.identification_bits = 16;
  witness_.apply(other, now_);
  now_ += seconds(1);
  poll_until(now_ + milliseconds(20), {report(Bytes{0xE2, 0, 1, 33})});
  poll_until(now_ + milliseconds(20), {report(kFirst)});
  sightings();
  ASSERT_THAT(over_, SizeIs(1));
  EXPECT_EQ(over_.front().card, kCard);
  EXPECT_TRUE(over_.front().goes_on);
}

TEST_F(WitnessTest, MoreTagsThanThereIsRoomForAreLeftOutAndCounted) {
  for (std::size_t i = 0; i < Witness::kMostSightings + 10; ++i) {
    witness_.saw(poll(now_, {report({1, static_cast<std::uint8_t>(i >> 8U), static_cast<std::uint8_t>(i), 1})}));
  }
  witness_.end();
  EXPECT_EQ(over_.size(), Witness::kMostSightings);
  EXPECT_EQ(witness_.left_out(), 10U);
}

}  // namespace
}  // namespace achost::why
