// Bytes as frames and as what is none.
#include "frame_scan.h"

#include <gmock/gmock.h>

#include "recording.h"

namespace uhfctl {
namespace {

const std::string kGetPower = "7F00B70000B77E";
const std::string kPower2600 = "7F01B700020A28EC7E";
const std::string kTag = "7F02220007C80800ABCD951D257E";

std::vector<std::string> found(const std::string& digits, bool all = true) {
  std::vector<std::string> texts;
  for (const auto& item : scan(parse_hex(digits, "test"), all).found) {
    texts.push_back(std::to_string(item.offset) + "+" + std::to_string(item.size) + " " +
                    (item.frame != nullptr ? describe(*item.frame) : item.problem));
  }
  return texts;
}

using ::testing::ElementsAre;

TEST(Scan, TellsFramesOneAfterTheOther) {
  EXPECT_THAT(found(kGetPower + kPower2600),
              ElementsAre("0+7 get power command", "7+9 get power response: power 2600"));
}

TEST(Scan, TellsATag) {
  EXPECT_THAT(found(kTag), ElementsAre("0+14 tag report: epc ABCD, rssi 200, pc 0800, crc 951D"));
}

TEST(Scan, JunkIsOnePieceUpToTheNextHeader) {
  EXPECT_THAT(found("00 11 22" + kGetPower + "7E"),
              ElementsAre("0+3 no header 7F", "3+7 get power command", "10+1 no header 7F"));
}

TEST(Scan, AWrongChecksumTakesItsFrameAlone) {
  const auto items = scan(parse_hex("7F00B70000B87E" + kGetPower, "test"), true).found;
  ASSERT_EQ(items.size(), 2U);
  EXPECT_TRUE(items[0].wrong_checksum);
  EXPECT_EQ(items[0].problem, "wrong checksum: it has B8, its bytes give B7");
  EXPECT_NE(items[1].frame, nullptr);
}

TEST(Scan, AMissingEndByteDoesNotHideTheNextFrame) {
  EXPECT_THAT(found("7F00B70000B700" + kGetPower),
              ElementsAre("0+1 no end byte 7E where the length puts it, 6 bytes on", "1+6 no header 7F",
                          "7+7 get power command"));
}

TEST(Scan, ALengthBeyondTheEndDoesNotHideTheNextFrame) {
  EXPECT_THAT(found("7F00B7FFFF" + kGetPower), ElementsAre("0+1 cut off: its length asks for 65542 bytes, 12 are left",
                                                           "1+4 no header 7F", "5+7 get power command"));
}

TEST(Scan, AnUnknownCommandIsNamed) {
  EXPECT_THAT(found("7F00120000127E"), ElementsAre("0+7 Unknown Command Type: 18"));
}

TEST(Scan, ATagReportWithoutRoomForItsCrcIsAProblem) {
  EXPECT_THAT(found("7F02220003C808 00F77E"), ElementsAre("0+10 a tag report with no room for its CRC"));
}

TEST(Scan, WhatMayBecomeAFrameIsLeftWhileMoreComes) {
  for (std::size_t cut = 0; cut < kTag.size(); cut += 2) {
    const auto [items, rest] = scan(parse_hex(kGetPower + kTag.substr(0, cut), "test"), false);
    EXPECT_EQ(items.size(), 1U) << cut;
    EXPECT_EQ(rest, cut / 2) << cut;
  }
  EXPECT_EQ(scan(parse_hex(kTag, "test"), false).rest, 0U);
}

TEST(Scan, EveryByteBelongsToOnePiece) {
  // Whatever is done to a byte of a conversation, the pieces fill it without a gap.
  const auto bytes = parse_hex(kGetPower + kPower2600 + kTag + kTag, "test");
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    for (int value = 0; value < 256; ++value) {
      auto changed = bytes;
      changed[at] = static_cast<unsigned char>(value);
      std::size_t next = 0;
      for (const auto& item : scan(changed, true).found) {
        ASSERT_EQ(item.offset, next);
        ASSERT_GT(item.size, 0U);
        next += item.size;
      }
      ASSERT_EQ(next, bytes.size());
    }
  }
}

TEST(ParseHex, LeavesOutWhatStandsBetweenTheDigits) {
  EXPECT_EQ(parse_hex("7f 0x00,B7:\n01", "test"), (std::vector<unsigned char>{0x7F, 0x00, 0xB7, 0x01}));
}

}  // namespace
}  // namespace uhfctl
