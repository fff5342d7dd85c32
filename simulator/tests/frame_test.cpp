#include "frame.h"

#include <gmock/gmock.h>

#include "crc16.h"
#include "hex.h"

namespace uhfsim::testing {
namespace {

// All commands that the scanner finds, as code followed by parameters.
std::vector<Bytes> scan(CommandScanner& scanner, const Bytes& bytes) {
  scanner.push(bytes);
  std::vector<Bytes> found;
  while (const auto command = scanner.next()) found.push_back(Bytes{command->code} + command->parameters);
  return found;
}

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(EncodeFrame, WritesHeaderLengthChecksumAndEnd) {
  EXPECT_EQ(encode_frame(FrameType::command, 0xB7, Bytes{}), hex("7F 00 B7 00 00 B7 7E"));
  EXPECT_EQ(encode_frame(FrameType::response, 0xB6, hex("00")), hex("7F 01 B6 00 01 00 B8 7E"));
}

TEST(EncodeFrame, LengthHasItsHighByteFirst) {
  const Bytes frame = encode_frame(FrameType::notice, 0x22, Bytes(0x0123, 0x01));
  EXPECT_EQ(Bytes(frame.begin(), frame.begin() + 6), hex("7F 02 22 01 23 01"));
  EXPECT_EQ(frame.size(), 0x0123U + 7);
  EXPECT_EQ(frame[frame.size() - 2], (0x02 + 0x22 + 0x01 + 0x23 + 0x0123) & 0xFF);
}

TEST(CommandScanner, WaitsForTheRestAtEveryByte) {
  const Bytes command = hex("7F 00 A9 00 03 02 7F 7E AB 7E");
  CommandScanner scanner;
  for (std::size_t i = 0; i + 1 < command.size(); ++i) {
    EXPECT_THAT(scan(scanner, {command[i]}), IsEmpty()) << "after byte " << i;
  }
  EXPECT_THAT(scan(scanner, {command.back()}), ElementsAre(hex("A9 02 7F 7E")));
  EXPECT_EQ(scanner.skipped(), 0U);
}

TEST(CommandScanner, FindsEveryCommandOfOneChunkAndKeepsTheBegunOne) {
  CommandScanner scanner;
  EXPECT_THAT(scan(scanner, kGetPower + kInventory + hex("7F 00")), ElementsAre(hex("B7"), hex("22")));
  EXPECT_THAT(scan(scanner, hex("22 00 00 22 7E")), ElementsAre(hex("22")));
}

struct Junk {
  const char* name;
  const char* bytes;
};

class CommandScannerJunk : public ::testing::TestWithParam<Junk> {};

TEST_P(CommandScannerJunk, IsSkippedAndCountedAndTheNextCommandFound) {
  const Bytes junk = hex(GetParam().bytes);
  CommandScanner scanner;
  EXPECT_THAT(scan(scanner, junk + kGetPower), ElementsAre(hex("B7")));
  EXPECT_EQ(scanner.skipped(), junk.size());
}

INSTANTIATE_TEST_SUITE_P(Cases, CommandScannerJunk,
                         ::testing::Values(Junk{"StrayBytes", "00 01 7E FF"},
                                           Junk{"WrongChecksum", "7F 00 B7 00 00 B8 7E"},
                                           Junk{"WrongEnd", "7F 00 B7 00 00 B7 7D"},
                                           Junk{"Response", "7F 01 B6 00 01 00 B8 7E"}, Junk{"Notice", "7F 02 22"},
                                           Junk{"LoneHeaders", "7F 7F 7F"}, Junk{"EndlessLength", "7F 00 B7 FF FF"},
                                           Junk{"LengthJustTooLong", "7F 00 B7 02 01"},
                                           Junk{"CutOffCommand", "7F 00 B6 00 02 0A"}),
                         [](const auto& test) { return test.param.name; });

TEST(CommandScanner, TakesTheLongestParameterList) {
  CommandScanner scanner;
  const Bytes parameters(CommandScanner::kMaxParameters, 0x7F);
  const auto found = scan(scanner, encode_frame(FrameType::command, 0xA9, parameters));
  EXPECT_THAT(found, ElementsAre(Bytes{0xA9} + parameters));
}

TEST(CommandScanner, FindsTheGoodCommandInsideABrokenOne) {
  CommandScanner scanner;
  // The outer frame announces seven parameter bytes, which are a whole command, and has a wrong checksum.
  EXPECT_THAT(scan(scanner, hex("7F 00 A9 00 07") + kGetPower + hex("00 7E")), ElementsAre(hex("B7")));
  EXPECT_EQ(scanner.skipped(), 7U);
}

// The check value that catalogues of CRCs give for this one, over the digits 1 to 9.
TEST(Crc16, HasTheCatalogueCheckValue) { EXPECT_EQ(crc16(hex("31 32 33 34 35 36 37 38 39")), 0xD64E); }

TEST(Crc16, OfNothingIsTheComplementedPreset) { EXPECT_EQ(crc16(Bytes{}), 0x0000); }

}  // namespace
}  // namespace uhfsim::testing
