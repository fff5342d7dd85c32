// From EPC to card value.
#include "card_value.h"

#include <gmock/gmock.h>

#include "hex.h"
#include "second_host.h"

using second_host::host;

namespace {

struct Row {
  int bits;
  std::string readerType;
  std::string epc;
  std::uint64_t value;
};

std::uint64_t valueOf(int bits, const std::string& readerType, const std::string& epc) {
  host().reset();
  host().set("identification_bits", bits);
  host().set("reader_type", readerType);
  return toCardValue(hex(epc));
}

constexpr auto EPC = "E2 00 68 0A 00 01 02 03 04 12 34 56";

}  // namespace

class CardValue : public testing::TestWithParam<Row> {};

TEST_P(CardValue, FollowsTheSettings) {
  const auto& [bits, readerType, epc, value] = GetParam();
  EXPECT_EQ(valueOf(bits, readerType, epc), value) << bits << " bits, \"" << readerType << "\", " << epc;
}

INSTANTIATE_TEST_SUITE_P(TakesTheLastBytes, CardValue,
                         testing::Values(Row{32, "msb", EPC, 0x04123456}, Row{32, "", EPC, 0x04123456},
                                         Row{32, "lsb ", EPC, 0x04123456}, Row{8, "msb", EPC, 0x56},
                                         Row{16, "msb", EPC, 0x3456}, Row{64, "msb", EPC, 0x0001020304123456},
                                         Row{40, "msb", EPC, 0x0304123456}));

INSTANTIATE_TEST_SUITE_P(TakesTheFirstBytesForLsb, CardValue,
                         testing::Values(Row{32, "lsb", EPC, 0xE200680A}, Row{32, "LSB", EPC, 0xE200680A},
                                         Row{16, "Lsb", EPC, 0xE200}, Row{8, "lsb", EPC, 0xE2}));

INSTANTIATE_TEST_SUITE_P(RoundsBitsUpToBytes, CardValue,
                         testing::Values(Row{1, "msb", EPC, 0x56}, Row{9, "msb", EPC, 0x3456},
                                         Row{26, "msb", EPC, 0x04123456}, Row{26, "lsb", EPC, 0xE200680A}));

INSTANTIATE_TEST_SUITE_P(SplitsThreeBytes, CardValue,
                         testing::Values(Row{24, "msb", EPC, 0x1200003456}, Row{17, "msb", EPC, 0x1200003456},
                                         Row{24, "lsb", EPC, 0xE200000068}, Row{24, "msb", "34 56", 0x3456}));

INSTANTIATE_TEST_SUITE_P(SplitsNoOtherNumberOfBytes, CardValue,
                         testing::Values(Row{32, "msb", "12 34 56", 0x123456}, Row{25, "msb", "12 34 56", 0x123456},
                                         Row{32, "lsb", "12 34 56", 0x123456}, Row{16, "msb", "12 34 56", 0x3456}));

INSTANTIATE_TEST_SUITE_P(IsZeroWithoutBitsOrEpc, CardValue,
                         testing::Values(Row{0, "msb", EPC, 0}, Row{-1, "msb", EPC, 0}, Row{-64, "lsb", EPC, 0},
                                         Row{32, "msb", "", 0}, Row{32, "lsb", "", 0}, Row{24, "lsb", "", 0}));

INSTANTIATE_TEST_SUITE_P(TakesNoMoreThanTheEpcHas, CardValue,
                         testing::Values(Row{32, "msb", "AB CD", 0xABCD}, Row{32, "lsb", "AB CD", 0xABCD},
                                         Row{64, "lsb", "AB", 0xAB}, Row{2147483647, "msb", "AB CD", 0xABCD}));

INSTANTIATE_TEST_SUITE_P(KeepsTheLastEightOfMoreBytes, CardValue,
                         testing::Values(Row{96, "msb", EPC, 0x0001020304123456},
                                         Row{72, "lsb", EPC, 0x00680A0001020304},
                                         Row{2147483647, "msb", EPC, 0x0001020304123456}));

TEST(CardValueSettings, AreReadForEveryTag) {
  EXPECT_EQ(valueOf(32, "msb", EPC), 0x04123456U);
  host().set("identification_bits", 16);
  EXPECT_EQ(toCardValue(hex(EPC)), 0x3456U);
  host().set("reader_type", "lsb");
  EXPECT_EQ(toCardValue(hex(EPC)), 0xE200U);
  EXPECT_THAT(host().calls(),
              testing::IsSupersetOf({"get_int uhf identification_bits false", "get_param uhf reader_type false"}));
}

TEST(CardValueLog, NamesTheValueInDecimal) {
  valueOf(64, "msb", "FF FF FF FF FF FF FF FF");
  const auto line = host().debug_lines().at(0);
  EXPECT_EQ(line.text, "Card Value: 18446744073709551615");
  EXPECT_EQ(line.function, "toCardValue");
  EXPECT_EQ(line.source, "uhf/src/source/uhf");
}
