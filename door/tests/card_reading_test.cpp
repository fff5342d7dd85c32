// From a reader's answer to cards.
#include <gmock/gmock.h>

#include "door/why/answer.h"
#include "door/why/card_value.h"
#include "hex.h"

using achost::why::AnswerFrame;
using achost::why::card_value;
using achost::why::first_used;

namespace {

constexpr auto kEpc = "E2 00 68 0A 00 01 02 03 04 12 34 56";

std::uint64_t value_of(int bits, std::string_view type, const std::string& epc = kEpc) {
  return card_value(hex(epc), bits, type);
}

// Reports are "r".
std::size_t first_used_of(std::string_view answer) {
  std::vector<AnswerFrame> frames;
  for (const char frame : answer) {
    frames.push_back(frame == 'r' ? AnswerFrame::kReport : AnswerFrame::kOther);
  }
  return first_used(frames);
}

}  // namespace

TEST(CardValueModel, TakesTheLastBytes) {
  EXPECT_EQ(value_of(32, "msb"), 0x04123456U);
  EXPECT_EQ(value_of(32, ""), 0x04123456U);
  EXPECT_EQ(value_of(32, "lsb "), 0x04123456U) << "a word that is none";
}

TEST(CardValueModel, TakesTheFirstBytesForLsbInAnyCase) {
  EXPECT_EQ(value_of(32, "lsb"), 0xE200680AU);
  EXPECT_EQ(value_of(32, "LsB"), 0xE200680AU);
}

TEST(CardValueModel, RoundsBitsUpToBytes) {
  EXPECT_EQ(value_of(25, "msb"), 0x04123456U);
  EXPECT_EQ(value_of(9, "msb"), 0x3456U);
  EXPECT_EQ(value_of(8, "msb"), 0x56U);
}

TEST(CardValueModel, SplitsThreeBytesThatAreWanted) {
  EXPECT_EQ(value_of(24, "msb"), 0x1200003456U);
  EXPECT_EQ(value_of(24, "lsb"), 0xE200000068U);
  EXPECT_EQ(value_of(24, "msb", "34 56"), 0x3456U);
  EXPECT_EQ(value_of(32, "msb", "12 34 56"), 0x123456U) << "four are wanted";
}

TEST(CardValueModel, IsZeroWithoutBitsOrBytes) {
  EXPECT_EQ(value_of(0, "msb"), 0U);
  EXPECT_EQ(value_of(-8, "lsb"), 0U);
  EXPECT_EQ(value_of(32, "lsb", ""), 0U);
}

TEST(CardValueModel, TakesNoMoreThanThereIs) {
  EXPECT_EQ(value_of(64, "lsb", "AB CD"), 0xABCDU);
  EXPECT_EQ(value_of(2'147'483'647, "msb", "AB CD"), 0xABCDU);
}

TEST(CardValueModel, KeepsTheLastEightOfMore) {
  EXPECT_EQ(value_of(96, "msb"), 0x0001020304123456U);
  EXPECT_EQ(value_of(72, "lsb"), 0x00680A0001020304U);
}

TEST(AnswerHalf, IsTheLastRoundedUp) {
  EXPECT_EQ(first_used_of(""), 0U);
  EXPECT_EQ(first_used_of("r"), 0U);
  EXPECT_EQ(first_used_of("rr"), 1U);
  EXPECT_EQ(first_used_of("rrr"), 1U);
  EXPECT_EQ(first_used_of("rrrr"), 2U);
}

TEST(AnswerHalf, IsNoneWithSomethingElseInIt) {
  EXPECT_EQ(first_used_of("-"), 1U);
  EXPECT_EQ(first_used_of("rr-"), 3U);
  EXPECT_EQ(first_used_of("r-r"), 3U);
  EXPECT_EQ(first_used_of("-rr"), 1U) << "what does not count does not matter";
}
