#include "uhfsim/reader.h"

#include <gmock/gmock.h>

#include <map>

#include "hex.h"

namespace uhfsim::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Notices hold RSSI, PC, EPC and CRC.
const Tag kCard{.epc = hex("E28011700000020A00000001")};
const Bytes kCardNotice = hex("7F 02 22 00 11 C8 3000 E28011700000020A00000001 166B 9E 7E");
const Tag kShortCard{.epc = hex("ABCD"), .rssi = 0x50};
const Bytes kShortCardNotice = hex("7F 02 22 00 07 50 0800 ABCD 3799 CB 7E");
const Tag kOddCard{.epc = hex("0D0A"), .pc = 0x1234};
const Bytes kOddCardNotice = hex("7F 02 22 00 07 C8 1234 0D0A 4383 16 7E");

class ReaderTest : public ::testing::Test {
 protected:
  // The one reply to one command.
  Bytes ask(const Bytes& command) {
    const auto replies = reader_.feed(command);
    return replies.size() == 1 ? replies[0] : Bytes{};
  }

  Field field_;
  Reader reader_{field_, {}};
};

using ReaderCommand = ReaderTest;

TEST_F(ReaderCommand, StartsWithTheFactoryState) { EXPECT_EQ(reader_.state(), (State{2600, 0x01, {}, {2, 6, 160}})); }

TEST_F(ReaderCommand, SetWorkAreaKeepsTheRegionCode) {
  EXPECT_EQ(ask(hex("7F 00 07 00 01 02 0A 7E")), hex("7F 01 07 00 01 00 09 7E"));
  EXPECT_EQ(reader_.state().region, 0x02);
}

TEST_F(ReaderCommand, GetPowerStartsAt2600) { EXPECT_EQ(ask(kGetPower), kPower2600); }

TEST_F(ReaderCommand, SetPowerIsReadBack) {
  EXPECT_EQ(ask(hex("7F 00 B6 00 02 0B B8 7B 7E")), hex("7F 01 B6 00 01 00 B8 7E"));
  EXPECT_EQ(reader_.state().power, 3000);
  EXPECT_EQ(ask(kGetPower), hex("7F 01 B7 00 02 0B B8 7D 7E"));
}

TEST_F(ReaderCommand, GetSensitivityStartsWithTheFactoryValues) {
  EXPECT_EQ(ask(hex("7F 00 F1 00 00 F1 7E")), hex("7F 01 F1 00 04 02 06 00 A0 9E 7E"));
}

TEST_F(ReaderCommand, SetSensitivityIsReadBack) {
  EXPECT_EQ(ask(hex("7F 00 F0 00 04 03 07 12 34 44 7E")), hex("7F 01 F0 00 01 00 F2 7E"));
  EXPECT_EQ(reader_.state().sensitivity, (Sensitivity{3, 7, 0x1234}));
  EXPECT_EQ(ask(hex("7F 00 F1 00 00 F1 7E")), hex("7F 01 F1 00 04 03 07 12 34 46 7E"));
}

TEST_F(ReaderCommand, InsertChannelsKeepsThemInOrder) {
  EXPECT_EQ(ask(hex("7F 00 A9 00 04 03 03 01 02 B6 7E")), hex("7F 01 A9 00 01 00 AB 7E"));
  EXPECT_THAT(reader_.state().channels, ElementsAre(3, 1, 2));
}

TEST_F(ReaderCommand, InsertedChannelsJoinThoseThatAreThereOnceEach) {
  ask(hex("7F 00 A9 00 03 02 01 02 B1 7E"));
  ask(hex("7F 00 A9 00 03 02 02 09 B9 7E"));
  EXPECT_THAT(reader_.state().channels, ElementsAre(1, 2, 9));
}

TEST_F(ReaderCommand, InsertOfNoChannelsClears) {
  ask(hex("7F 00 A9 00 03 02 01 02 B1 7E"));
  EXPECT_EQ(ask(hex("7F 00 A9 00 01 00 AA 7E")), hex("7F 01 A9 00 01 00 AB 7E"));
  EXPECT_THAT(reader_.state().channels, IsEmpty());
}

TEST_F(ReaderCommand, ParametersBeyondTheExpectedOnesAreIgnored) {
  EXPECT_EQ(ask(hex("7F 00 A9 00 04 02 01 02 09 BB 7E")), hex("7F 01 A9 00 01 00 AB 7E"));
  EXPECT_THAT(reader_.state().channels, ElementsAre(1, 2));
  EXPECT_EQ(ask(hex("7F 00 B6 00 03 0B B8 FF 7B 7E")), hex("7F 01 B6 00 01 00 B8 7E"));
  EXPECT_EQ(reader_.state().power, 3000);
}

TEST_F(ReaderCommand, UnknownOneIsAnsweredWithItsOwnStatus) {
  EXPECT_EQ(ask(hex("7F 00 10 00 00 10 7E")), hex("7F 01 FF 00 01 17 18 7E"));
  EXPECT_EQ(ask(hex("7F 00 FF 00 01 15 15 7E")), hex("7F 01 FF 00 01 17 18 7E"));
}

struct Short {
  const char* name;
  const char* command;
};

class ReaderShortParameters : public ReaderTest, public ::testing::WithParamInterface<Short> {};

TEST_P(ReaderShortParameters, AreRefusedAndChangeNothing) {
  EXPECT_EQ(ask(hex(GetParam().command)), hex("7F 01 FF 00 01 0E 0F 7E"));
  EXPECT_EQ(reader_.state(), State{});
}

INSTANTIATE_TEST_SUITE_P(Commands, ReaderShortParameters,
                         ::testing::Values(Short{"SetWorkArea", "7F 00 07 00 00 07 7E"},
                                           Short{"InsertChannelsWithoutCount", "7F 00 A9 00 00 A9 7E"},
                                           Short{"InsertChannelsCountTooHigh", "7F 00 A9 00 03 05 01 02 B4 7E"},
                                           Short{"InsertChannelsOneMissing", "7F 00 A9 00 03 03 01 02 B2 7E"},
                                           Short{"SetPower", "7F 00 B6 00 01 0B C2 7E"},
                                           Short{"SetSensitivity", "7F 00 F0 00 03 02 06 00 FB 7E"}),
                         [](const auto& test) { return test.param.name; });

using ReaderInput = ReaderTest;

TEST_F(ReaderInput, IncompleteCommandWaitsForItsRest) {
  EXPECT_THAT(reader_.feed(hex("7F 00 B7")), IsEmpty());
  EXPECT_THAT(reader_.feed(hex("00 00 B7 7E")), ElementsAre(kPower2600));
}

TEST_F(ReaderInput, SeveralCommandsAreAnsweredInOrder) {
  EXPECT_THAT(reader_.feed(kGetPower + kInventory + kGetPower), ElementsAre(kPower2600, kNothingRead, kPower2600));
  EXPECT_EQ(reader_.counters().commands, 3U);
}

TEST_F(ReaderInput, WrongChecksumOrEndIsNotAnsweredAndTheNextCommandIs) {
  EXPECT_THAT(reader_.feed(hex("7F 00 B7 00 00 B6 7E") + kInventory), ElementsAre(kNothingRead));
  EXPECT_THAT(reader_.feed(hex("7F 00 B7 00 00 B7 7F") + kInventory), ElementsAre(kNothingRead));
  EXPECT_EQ(reader_.counters().commands, 2U);
}

TEST_F(ReaderInput, JunkIsSkippedAndCounted) {
  EXPECT_THAT(reader_.feed(hex("00 7E 55") + kGetPower), ElementsAre(kPower2600));
  EXPECT_EQ(reader_.counters().skipped, 3U);
}

using ReaderInventory = ReaderTest;

TEST_F(ReaderInventory, TagIsReportedWithRssiPcEpcAndCrc) {
  field_.add(kCard);
  EXPECT_EQ(ask(kInventory), kCardNotice);
}

TEST_F(ReaderInventory, GivenProtocolControlWordIsReportedAsItIs) {
  field_.add(kOddCard);
  EXPECT_EQ(ask(kInventory), kOddCardNotice);
}

TEST_F(ReaderInventory, NoticesOfOneRoundAreOneReply) {
  field_.add(kCard);
  field_.add(kShortCard);
  const Bytes reply = ask(kInventory);
  EXPECT_TRUE(reply == kCardNotice + kShortCardNotice || reply == kShortCardNotice + kCardNotice);
  EXPECT_EQ(reader_.counters().notices, 2U);
}

TEST_F(ReaderInventory, EmptyFieldIsAFailureResponse) {
  EXPECT_EQ(ask(kInventory), kNothingRead);
  EXPECT_EQ(reader_.counters().notices, 0U);
}

TEST_F(ReaderInventory, EmptyFieldIsNoReplyWhenAskedToBeQuiet) {
  Reader quiet(field_, {.seed = 1, .quiet_when_empty = true});
  EXPECT_THAT(quiet.feed(kInventory), IsEmpty());
  EXPECT_THAT(quiet.feed(kGetPower), ElementsAre(kPower2600));
  field_.add(kCard);
  EXPECT_THAT(quiet.feed(kInventory), ElementsAre(kCardNotice));
}

TEST_F(ReaderInventory, TagThatLeftIsNotReported) {
  field_.add(kCard);
  ask(kInventory);
  field_.remove(kCard.epc);
  EXPECT_EQ(ask(kInventory), kNothingRead);
}

// How many of so many rounds read a tag of this probability.
int rounds_read(double probability, int rounds) {
  Field field;
  field.add({.epc = hex("0001"), .probability = probability});
  Reader reader(field, {});
  int read = 0;
  for (int i = 0; i < rounds; ++i) read += reader.feed(kInventory).at(0) != kNothingRead ? 1 : 0;
  return read;
}

TEST_F(ReaderInventory, ProbabilityIsTheShareOfRoundsThatReadTheTag) { EXPECT_NEAR(rounds_read(0.3, 4000), 1200, 120); }

TEST_F(ReaderInventory, ProbabilityZeroIsNeverAndOneAlways) {
  EXPECT_EQ(rounds_read(0, 500), 0);
  EXPECT_EQ(rounds_read(1, 500), 500);
}

TEST_F(ReaderInventory, EachTagHasItsOwnProbability) {
  field_.add({.epc = kCard.epc, .probability = 0});
  field_.add(kShortCard);
  for (int i = 0; i < 100; ++i) ASSERT_EQ(ask(kInventory), kShortCardNotice);
}

TEST_F(ReaderInventory, ATagAnswersFromItsLeastPowerOn) {
  field_.add({.epc = kShortCard.epc, .rssi = kShortCard.rssi, .pc = kShortCard.pc, .least_power = 2601});
  EXPECT_EQ(ask(kInventory), kNothingRead) << "the power is 2600";
  field_.add({.epc = kShortCard.epc, .rssi = kShortCard.rssi, .pc = kShortCard.pc, .least_power = 2600});
  EXPECT_EQ(ask(kInventory), kShortCardNotice);
}

// The replies of many rounds over four tags, two of them read by chance.
std::vector<Bytes> many_rounds(std::uint64_t seed) {
  Field field;
  for (std::uint8_t i = 0; i < 4; ++i) field.add({.epc = {0, i}, .probability = i < 2 ? 0.5 : 1.0});
  Reader reader(field, {.seed = seed});
  std::vector<Bytes> replies;
  for (int i = 0; i < 200; ++i) replies.push_back(reader.feed(kInventory).at(0));
  return replies;
}

TEST_F(ReaderInventory, SameSeedGivesTheSameBytes) { EXPECT_EQ(many_rounds(42), many_rounds(42)); }

TEST_F(ReaderInventory, OtherSeedGivesOtherBytes) { EXPECT_NE(many_rounds(42), many_rounds(43)); }

TEST_F(ReaderInventory, EveryOrderOfTheTagsComesEquallyOften) {
  for (std::uint8_t i = 0; i < 3; ++i) field_.add({.epc = {0, i}});
  std::map<Bytes, int> orders;
  for (int i = 0; i < 6000; ++i) ++orders[ask(kInventory)];
  EXPECT_EQ(orders.size(), 6U);
  for (const auto& [reply, times] : orders) EXPECT_NEAR(times, 1000, 150);
}

}  // namespace
}  // namespace uhfsim::testing
