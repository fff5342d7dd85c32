// What frame.h alone gives to who includes it: the frame as a value, and the parser of fields.
#include "frame.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <type_traits>

using ac::UHF::Frame;

TEST(FrameHeader, ParsesFieldsOfAByteVector) {
  const std::vector<unsigned char> bytes{0x12, 0x34, 0x56};
  std::size_t offset = 0;
  EXPECT_EQ(ac::UHF::parse<std::uint16_t>(offset, bytes), 0x1234);
  EXPECT_EQ(ac::UHF::parse<std::uint8_t>(offset, bytes), 0x56);
  EXPECT_EQ(offset, 3U);
  offset = 1;
  EXPECT_EQ(ac::UHF::parse<std::uint8_t>(offset, {0x12, 0x34}), 0x34);
}

TEST(FrameHeader, FramesAreCopiedAndMovedLikeValues) {
  const Frame frame(Frame::Type::Command, Frame::CommandType::GetTransmitPower, 0, 0xB7);
  Frame copy = frame;
  EXPECT_EQ(copy.toData(), frame.toData());
  Frame other(Frame::Type::Response, Frame::CommandType::CRCError, 0, 0);
  other = copy;
  EXPECT_EQ(other.toData(), frame.toData());
  other = Frame(Frame::Type::Response, Frame::CommandType::CRCError, 0, 0);
  EXPECT_EQ(other.type(), Frame::Type::Response);
  copy = std::move(other);
  EXPECT_EQ(copy.command(), Frame::CommandType::CRCError);
  EXPECT_TRUE(std::is_nothrow_move_constructible_v<Frame>);
}
