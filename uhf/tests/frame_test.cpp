// The codec: between frames and wire bytes.
#include "frame.h"

#include <gmock/gmock.h>

#include "byte_reader.h"
#include "failure.h"
#include "frame_catalogue.h"
#include "hex.h"

using ac::UHF::Frame;
using ac::UHF::parse;

namespace {

std::string decodingFailure(const std::string& bytes) {
  return failure_of([&] { Frame::fromData(hex(bytes)); });
}

}  // namespace

TEST(Parse, ReadsOneByteAndMovesBehindIt) {
  std::size_t offset = 1;
  EXPECT_EQ(parse<std::uint8_t>(offset, hex("01 FE 03")), 0xFE);
  EXPECT_EQ(offset, 2U);
}

TEST(Parse, ReadsTwoBytesHighByteFirst) {
  std::size_t offset = 0;
  EXPECT_EQ(parse<std::uint16_t>(offset, hex("12 34")), 0x1234);
  EXPECT_EQ(offset, 2U);
}

TEST(Parse, ThrowsPastTheEndAndLeavesTheOffset) {
  for (const std::size_t start : {1U, 2U, 1000U}) {
    std::size_t offset = start;
    EXPECT_EQ(failure_of([&] { parse<std::uint16_t>(offset, hex("12 34")); }), "Not enough bytes to parse type");
    EXPECT_EQ(offset, start);
  }
}

TEST(Parse, ThrowsForAnOffsetNearTheEndOfNumbers) {
  std::size_t offset = SIZE_MAX;
  EXPECT_EQ(failure_of([&] { parse<std::uint8_t>(offset, hex("12 34")); }), "Not enough bytes to parse type");
}

TEST(Decode, FewerBytesThanAFrameWaitForMore) {
  const auto whole = hex("7F 00 B7 00 00 B7");
  for (std::size_t size = 0; size <= whole.size(); ++size) {
    const auto [frame, consumed] = Frame::fromData({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)});
    EXPECT_EQ(frame, nullptr) << size;
    EXPECT_EQ(consumed, 0U) << size;
  }
}

TEST(Decode, SixBytesOfJunkWaitToo) { EXPECT_EQ(Frame::fromData(hex("00 00 00 00 00 00")).second, 0U); }

TEST(Decode, AnythingButAHeaderIsDroppedByteByByte) {
  for (unsigned int first = 0; first <= 0xFF; ++first) {
    auto bytes = hex("7F 00 B7 00 00 B7 7E");
    bytes[0] = static_cast<unsigned char>(first);
    const auto [frame, consumed] = Frame::fromData(bytes);
    EXPECT_EQ(frame != nullptr, first == 0x7F) << first;
    EXPECT_EQ(consumed, first == 0x7F ? 7U : 1U) << first;
  }
}

TEST(Decode, TakesOneFrameAndLeavesTheRest) {
  for (const auto* bytes : {"7F 00 B7 00 00 B7 7E", "7F 00 B7 00 00 B7 7E 7F 01", "7F 00 B7 00 00 B7 7E FF FF FF"}) {
    const auto [frame, consumed] = Frame::fromData(hex(bytes));
    EXPECT_NE(dynamic_cast<ac::UHF::GetTransmitPowerFrame*>(frame.get()), nullptr) << bytes;
    EXPECT_EQ(consumed, 7U) << bytes;
  }
}

TEST(Decode, ALengthBeyondTheBufferIsInvalid) {
  EXPECT_EQ(decodingFailure("7F 00 B7 00 05 B7 7E"), "Invalid parameter length");
  EXPECT_EQ(decodingFailure("7F 00 B7 00 03 B7 7E"), "Invalid parameter length");
  EXPECT_EQ(decodingFailure("7F 00 B7 FF FF B7 7E"), "Invalid parameter length");
}

TEST(Decode, AMissingChecksumOrEndByteIsNotEnough) {
  EXPECT_EQ(decodingFailure("7F 01 B6 00 01 00 B8"), "Not enough bytes to parse type");
  EXPECT_EQ(decodingFailure("7F 01 B6 00 02 00 B8"), "Not enough bytes to parse type");
}

TEST(Decode, AWrongEndByteConsumesTheFrameWithoutMakingIt) {
  const auto [frame, consumed] = Frame::fromData(hex("7F 00 B7 00 00 B7 7D"));
  EXPECT_EQ(frame, nullptr);
  EXPECT_EQ(consumed, 7U);
}

TEST(Decode, AWrongEndByteGoesBeforeAnUnknownCommand) {
  EXPECT_EQ(Frame::fromData(hex("7F 00 10 00 01 B7 00 7D")).second, 8U);
}

TEST(Decode, AWrongChecksumIsLeftToTheCaller) {
  const auto [frame, consumed] = Frame::fromData(hex("7F 00 B7 00 00 B8 7E"));
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(consumed, 7U);
  EXPECT_FALSE(frame->validateCheckSum());
  EXPECT_EQ(frame->calculateChecksum(), 0xB7);
  EXPECT_EQ(frame->toData(), hex("7F 00 B7 00 00 B8 7E")) << "it is kept as received";
}

TEST(Decode, HeaderAndEndBytesMayStandInsideAFrame) {
  const auto bytes = hex("7F 00 B6 00 02 7E 7F B5 7E");
  const auto [frame, consumed] = Frame::fromData(bytes);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(consumed, 9U);
  EXPECT_EQ(frame->toData(), bytes);
}

TEST(Decode, UnknownCommandIsNamedInDecimal) {
  EXPECT_EQ(decodingFailure("7F 00 10 00 00 10 7E"), "Unknown Command Type: 16");
  EXPECT_EQ(decodingFailure("7F 05 10 00 00 10 7E"), "Unknown Command Type: 16") << "the command goes before the type";
}

TEST(Decode, UnknownTypeIsNamedInDecimal) {
  EXPECT_EQ(decodingFailure("7F 02 B7 00 00 B7 7E"), "Unknown Frame Type: 2");
  EXPECT_EQ(decodingFailure("7F 00 FF 00 00 FF 7E"), "Unknown Frame Type: 0");
  EXPECT_EQ(decodingFailure("7F 01 22 00 00 23 7E"), "Unknown Frame Type: 1");
}

TEST(Decode, TheLongestFrameFits) {
  auto bytes = hex("7F 02 22 FF FF");
  bytes.resize(5 + 65535, 0x11);
  bytes.push_back(0);
  bytes.push_back(0x7E);
  auto [frame, consumed] = Frame::fromData(bytes);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(consumed, 65542U);
  bytes[bytes.size() - 2] = frame->calculateChecksum();
  frame = Frame::fromData(bytes).first;
  EXPECT_TRUE(frame->validateCheckSum());
  EXPECT_EQ(frame->toData(), bytes);
}

TEST(Checksum, CountsBothBytesOfTheLength) {
  const ac::UHF::InsertWorkChannelFrame frame(
      std::vector<unsigned char>(256, 0));  // 257 bytes: a count that wraps to 0
  EXPECT_EQ(frame.calculateChecksum(), 0xA9 + 0x01 + 0x01);
}

TEST(CreateFrame, TakesTheCommandFirst) {
  EXPECT_NE(Frame::createFrame(0xB7, 0, 0xB7, {}), nullptr);
  EXPECT_EQ(failure_of([] { Frame::createFrame(0, 0xB7, 0xB7, {}); }), "Unknown Command Type: 0");
}

TEST(CreateFrame, CodesAreSignedNumbers) {
  EXPECT_EQ(failure_of([] { Frame::createFrame(-1, 0, 0, {}); }), "Unknown Command Type: -1");
  EXPECT_EQ(failure_of([] { Frame::createFrame(0x1B7, 0, 0, {}); }), "Unknown Command Type: 439");
  EXPECT_EQ(failure_of([] { Frame::createFrame(0xB7, -2, 0, {}); }), "Unknown Frame Type: -2");
  EXPECT_EQ(failure_of([] { Frame::createFrame(0xB7, 256, 0, {}); }), "Unknown Frame Type: 256");
}

TEST(CreateFrame, AcceptsTheCataloguesPairsAndNoOthers) {
  const std::vector<std::pair<int, int>> accepted{{0x07, 0}, {0x07, 1}, {0x22, 0}, {0x22, 2}, {0xA9, 0},
                                                  {0xA9, 1}, {0xB6, 0}, {0xB6, 1}, {0xB7, 0}, {0xB7, 1},
                                                  {0xF0, 0}, {0xF0, 1}, {0xF1, 0}, {0xF1, 1}, {0xFF, 1}};
  const auto parameters = hex("00 01 02 03 04 05 06");
  for (int command = 0; command <= 0xFF; ++command) {
    for (int type = 0; type <= 3; ++type) {
      const bool expected = std::ranges::find(accepted, std::pair(command, type)) != accepted.end();
      const auto failure = failure_of([&] { Frame::createFrame(command, type, 0, parameters); });
      EXPECT_EQ(failure.empty(), expected) << command << " " << type << ": " << failure;
    }
  }
}

TEST(PrintVector, WritesHexadecimalAndTheCount) {
  EXPECT_EQ(Frame::printVector(hex("7F 00 B7")), "7f 00 b7 [3]");
  EXPECT_EQ(Frame::printVector({}), "[0]");
  EXPECT_EQ(Frame::printVector(std::vector<unsigned char>(12, 0x0A)), "0a 0a 0a 0a 0a 0a 0a 0a 0a 0a 0a 0a [12]");
}

TEST(MinFrameSize, IsThatOfAFrameWithoutParameters) {
  EXPECT_EQ(Frame::MIN_FRAME_SIZE, 7U);
  EXPECT_EQ(ac::UHF::InventoryCardFrame().toData().size(), Frame::MIN_FRAME_SIZE);
}
