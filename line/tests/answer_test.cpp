#include "line/answer.h"

#include <gtest/gtest.h>

#include "line/tests/samples.h"

namespace line::test {
namespace {

const Bytes kPower = frame_of(FrameType::response, Code::get_power, Bytes{0x0A, 0x28});
const Bytes kReport = frame_of(FrameType::notice, Code::inventory, Bytes{200, 0x30, 0, 1, 2, 3, 4, 0x95, 0x1D});

Bytes operator+(Bytes one, const Bytes& other) {
  one.insert(one.end(), other.begin(), other.end());
  return one;
}

TEST(LineAnswer, ToAnInventoryIsTagsOrAnEmptyFieldOrNothing) {
  const auto tags = answer_of(Code::inventory, kReport + kReport);
  EXPECT_EQ(tags.outcome, Outcome::tags);
  ASSERT_EQ(tags.tags.size(), 2U);
  EXPECT_EQ(tags.tags[0].rssi, 200);
  for (const auto& [epc, size, rssi] : tags.tags) {
    const Bytes both = kReport + kReport;
    EXPECT_EQ(
        Bytes(both.begin() + static_cast<std::ptrdiff_t>(epc), both.begin() + static_cast<std::ptrdiff_t>(epc + size)),
        (Bytes{1, 2, 3, 4}));
  }
  EXPECT_LT(tags.tags[0].epc, tags.tags[1].epc);
  EXPECT_EQ(answer_of(Code::inventory, kEmpty).outcome, Outcome::empty);
  EXPECT_EQ(answer_of(Code::inventory, {}).outcome, Outcome::silence);
}

TEST(LineAnswer, ToAnythingElseIsAFrameThatFits) {
  EXPECT_EQ(answer_of(Code::get_power, kPower).outcome, Outcome::answered);
  EXPECT_EQ(answer_of(Code::set_power, kEmpty).outcome, Outcome::answered) << "a failure is an answer too";
  EXPECT_EQ(answer_of(Code::set_power, kPower).outcome, Outcome::out_of_step);
  EXPECT_EQ(answer_of(Code::get_power, kReport).outcome, Outcome::out_of_step);
}

TEST(LineAnswer, TheQuestionComingBackIsAnEcho) {
  EXPECT_EQ(answer_of(Code::inventory, kPoll).outcome, Outcome::echo);
  EXPECT_EQ(answer_of(Code::inventory, kPoll + kReport).outcome, Outcome::tags);
}

TEST(LineAnswer, BytesWithoutAFrameAreBadAndSayWhy) {
  Bytes wrong = kReport;
  wrong[6] ^= 1U;
  const auto answer = answer_of(Code::inventory, wrong);
  EXPECT_EQ(answer.outcome, Outcome::bad);
  EXPECT_EQ(answer.flaw, Flaw::wrong_checksum);
  const auto both = answer_of(Code::inventory, kReport + wrong);
  EXPECT_EQ(both.outcome, Outcome::tags);
  EXPECT_EQ(both.flaw, Flaw::wrong_checksum) << "good and bad at once";
  EXPECT_EQ(answer_of(Code::inventory, kReport, true).outcome, Outcome::endless);
}

TEST(LineAnswer, AnEmptyFieldAndSilenceAreNotBad) {
  EXPECT_FALSE(is_bad(answer_of(Code::inventory, kEmpty)));
  EXPECT_FALSE(is_bad(answer_of(Code::inventory, {})));
  EXPECT_FALSE(is_bad(answer_of(Code::inventory, kReport)));
  EXPECT_TRUE(is_bad(answer_of(Code::inventory, Bytes{1})));
  EXPECT_TRUE(is_bad(answer_of(Code::inventory, kReport + Bytes{1})));
  EXPECT_TRUE(is_bad(answer_of(Code::inventory, kPower)));
  EXPECT_TRUE(is_bad(answer_of(Code::inventory, kPoll)));
}

}  // namespace
}  // namespace line::test
