#include "uhfsim/command.h"

#include <gmock/gmock.h>

#include "hex.h"
#include "uhfsim/text.h"

namespace uhfsim::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

Command parse(std::string_view line) { return parse_command(words_of(line)); }

TEST(ParseCommand, AddTakesAnEpcAndFillsInTheRest) {
  EXPECT_EQ(parse("add E28011700000020A00000001"), Command(AddTag{{.epc = hex("E28011700000020A00000001")}}));
  EXPECT_EQ(std::get<AddTag>(parse("add e28011700000020a00000001")).tag.pc, 0x3000);
}

TEST(ParseCommand, AddTakesItsOptionsInAnyOrder) {
  const Command expected =
      AddTag{{.epc = hex("00FF"), .rssi = 17, .pc = 0xABCD, .probability = 0.25, .least_power = 2000}};
  EXPECT_EQ(parse("add 00ff rssi=17 pc=abcd p=0.25 power=2000"), expected);
  EXPECT_EQ(parse("add 00FF power=2000 p=0.25 pc=ABCD rssi=17"), expected);
}

TEST(ParseCommand, BoundsAreIncluded) {
  EXPECT_EQ(std::get<AddTag>(parse("add 0001 rssi=0 p=0")).tag.probability, 0.0);
  EXPECT_EQ(std::get<AddTag>(parse("add 0001 rssi=255 p=1.0")).tag.rssi, 255);
  EXPECT_EQ(std::get<AddTag>(parse("add " + std::string(124, 'A'))).tag.epc, Bytes(62, 0xAA));
}

TEST(ParseCommand, RemoveClearAndFault) {
  EXPECT_EQ(parse("remove 0001"), Command(RemoveTag{hex("0001")}));
  EXPECT_EQ(parse("clear"), Command(ClearField{}));
  EXPECT_EQ(parse("fault silence 0.5"), Command(SetFault{"silence", 0.5}));
}

struct Bad {
  const char* name;
  std::string line;
  std::string error;
};

class ParseCommandError : public ::testing::TestWithParam<Bad> {};

TEST_P(ParseCommandError, TellsWhatWasFoundAndWhatWasExpected) {
  try {
    parse(GetParam().line);
    FAIL() << "no exception for " << GetParam().line;
  } catch (const CommandError& error) {
    EXPECT_EQ(error.what(), GetParam().error);
  }
}

const std::string kEpc = "2 to 62 bytes, an even number of them, as hexadecimal digits";
const std::string kAdd = "\"add EPCHEX [rssi=N] [pc=HHHH] [p=PROBABILITY] [power=N]\"";

INSTANTIATE_TEST_SUITE_P(
    Cases, ParseCommandError,
    ::testing::Values(
        Bad{"UnknownCommand", "ad 0001", "unknown command \"ad\"; expected add, remove, clear, fault or host"},
        Bad{"Unprintable", "\x1b[2J", "unknown command \"?[2J\"; expected add, remove, clear, fault or host"},
        Bad{"NoEpc", "add", "too few words after \"add\"; expected " + kAdd},
        Bad{"TooManyOptions", "add 0001 p=1 p=1 p=1 p=1 p=1", "too many words after \"add\"; expected " + kAdd},
        Bad{"OddDigits", "add 001", "EPC \"001\" has 3 digits; expected " + kEpc},
        Bad{"OddBytes", "add 000102", "EPC \"000102\" has 6 digits; expected " + kEpc},
        Bad{"NotHexadecimal", "remove 00g1", "EPC \"00g1\" is not hexadecimal; expected " + kEpc},
        Bad{"SignedHexadecimal", "remove -1-2", "EPC \"-1-2\" is not hexadecimal; expected " + kEpc},
        Bad{"EpcTooLong", "add " + std::string(128, '0'),
            "EPC \"" + std::string(128, '0') + "\" has 128 digits; expected " + kEpc},
        Bad{"UnknownOption", "add 0001 rsi=1",
            "unknown option \"rsi=1\"; expected rssi=N, pc=HHHH, p=PROBABILITY or power=N"},
        Bad{"OptionWithoutValue", "add 0001 rssi",
            "unknown option \"rssi\"; expected rssi=N, pc=HHHH, p=PROBABILITY or power=N"},
        Bad{"RssiTooHigh", "add 0001 rssi=256", "rssi \"256\"; expected 0 to 255"},
        Bad{"RssiNegative", "add 0001 rssi=-1", "rssi \"-1\"; expected 0 to 255"},
        Bad{"RssiEmpty", "add 0001 rssi=", "rssi \"\"; expected 0 to 255"},
        Bad{"PcShort", "add 0001 pc=300", "pc \"300\"; expected four hexadecimal digits"},
        Bad{"PcLong", "add 0001 pc=03000", "pc \"03000\"; expected four hexadecimal digits"},
        Bad{"PcNotHexadecimal", "add 0001 pc=30x0", "pc \"30x0\"; expected four hexadecimal digits"},
        Bad{"PowerTooHigh", "add 0001 power=65536", "power \"65536\"; expected 0 to 65535"},
        Bad{"ProbabilityTooHigh", "add 0001 p=1.1", "probability \"1.1\"; expected 0.0 to 1.0"},
        Bad{"ProbabilityNegative", "add 0001 p=-0.1", "probability \"-0.1\"; expected 0.0 to 1.0"},
        Bad{"ProbabilityNan", "add 0001 p=nan", "probability \"nan\"; expected 0.0 to 1.0"},
        Bad{"ProbabilityWithRest", "add 0001 p=0.5x", "probability \"0.5x\"; expected 0.0 to 1.0"},
        Bad{"ClearWithMore", "clear all", "too many words after \"clear\"; expected \"clear\""},
        Bad{"FaultWithoutProbability", "fault silence",
            "too few words after \"fault\"; expected \"fault NAME PROBABILITY\""},
        Bad{"UnknownFault", "fault noise 1",
            "unknown fault \"noise\"; expected silence, short-notice, wrong-length, unknown-command, unknown-type, "
            "corrupt-checksum, flip-bit, drop-byte, insert-byte, truncate, junk, echo, flood, split, split-at-end, "
            "late or hang-up"},
        Bad{"FaultProbability", "fault silence 2", "probability \"2\"; expected 0.0 to 1.0"}),
    [](const auto& test) { return test.param.name; });

TEST(ParseCommand, HostKeepsItsLine) {
  EXPECT_EQ(parse("host  enroll   --user 7"), Command(TellHost{"enroll --user 7"}));
  EXPECT_EQ(parse("host rex"), Command(TellHost{"rex"}));
  EXPECT_THROW(parse("host"), CommandError);
}

TEST(ApplyCommand, ChangesTheField) {
  Field field;
  FaultInjector faults(1);
  const Tag tag{.epc = hex("0001")};
  apply(AddTag{tag}, field, faults);
  apply(AddTag{{.epc = hex("0002")}}, field, faults);
  apply(RemoveTag{hex("0002")}, field, faults);
  EXPECT_THAT(field.snapshot(), ElementsAre(tag));
  apply(ClearField{}, field, faults);
  EXPECT_THAT(field.snapshot(), IsEmpty());
}

TEST(ApplyCommand, RemovingWhatIsNotThereIsNoError) {
  Field field;
  FaultInjector faults(1);
  EXPECT_NO_THROW(apply(RemoveTag{hex("0002")}, field, faults));
}

TEST(ApplyCommand, SwitchesAFault) {
  Field field;
  FaultInjector faults(1);
  apply(SetFault{"silence", 1}, field, faults);
  EXPECT_THAT(faults.intercept(kPower2600), IsEmpty());
}

TEST(CommandHelp, HasARowForEveryCommand) {
  const auto names = command_names();
  const auto help = command_help();
  ASSERT_EQ(help.size(), names.size());
  for (std::size_t i = 0; i < names.size(); ++i) EXPECT_TRUE(help[i].usage.starts_with(names[i]));
}

TEST(WordsOf, AreSeparatedByBlanksAndEndAtAComment) {
  EXPECT_THAT(words_of("  add\t0001  p=1 \r"), ElementsAre("add", "0001", "p=1"));
  EXPECT_THAT(words_of("clear # all of them"), ElementsAre("clear"));
  EXPECT_THAT(words_of("# only a comment"), IsEmpty());
  EXPECT_THAT(words_of(" \t"), IsEmpty());
}

}  // namespace
}  // namespace uhfsim::testing
