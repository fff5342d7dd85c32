#include "line/own_answer.h"

#include <gmock/gmock.h>

namespace line {
namespace {

using testing::IsEmpty;

const Bytes kPower = frame_of(FrameType::response, Code::get_power, Bytes{7, 8});
const Bytes kNothingRead = frame_of(FrameType::response, Code::failure, Bytes{0x15});

Bytes both(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

TEST(LineOwnAnswer, IsAnyGoodOneWhenThePlugInWaitsForNone) {
  EXPECT_EQ(OwnAnswer(Code::get_power).add(kPower, false).answer, kPower);
  EXPECT_EQ(OwnAnswer(Code::get_power).add(kNothingRead, false).answer, kNothingRead);
}

TEST(LineOwnAnswer, LeavesThePlugInWhatItWaitsFor) {
  OwnAnswer own(Code::get_power);
  const auto [others, answer] = own.add(both(kNothingRead, kPower), true);
  EXPECT_EQ(others, kNothingRead);
  EXPECT_EQ(answer, kPower);
}

TEST(LineOwnAnswer, WaitsForTheRestOfAFrame) {
  OwnAnswer own(Code::get_power);
  const ByteView all(kPower);
  EXPECT_THAT(own.add(all.first(4), true).others, IsEmpty());
  EXPECT_EQ(own.add(all.subspan(4), true).answer, kPower);
}

TEST(LineOwnAnswer, GivesBackWhatWasNone) {
  OwnAnswer own(Code::get_power);
  const Bytes part(kPower.begin(), kPower.begin() + 4);
  own.add(part, true);
  EXPECT_EQ(own.rest(), part);
}

TEST(LineOwnAnswer, ThatComesTooLateIsNobodys) {
  EXPECT_EQ(without_responses(Code::get_power, both(both(kNothingRead, kPower), kNothingRead)),
            both(kNothingRead, kNothingRead));
}

}  // namespace
}  // namespace line
