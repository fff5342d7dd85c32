#include "uhfsim/scenario.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "hex.h"

namespace uhfsim::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using namespace std::chrono_literals;

constexpr auto kBefore = Scenario::kBeforeStart;

Scenario parse(const std::string& text) { return Scenario::parse(text, "demo.txt"); }

Command add(const std::string& epc) { return AddTag{{.epc = hex(epc)}}; }
Command removal(const std::string& epc) { return RemoveTag{hex(epc)}; }
const Command kClear = ClearField{};

TEST(Scenario, EmptyOneHasNothingToDo) {
  for (const Scenario& scenario : {Scenario(), parse(""), parse("\n# nothing\n \r\n")}) {
    EXPECT_THAT(scenario.due(kBefore, 1h), IsEmpty());
    EXPECT_EQ(scenario.next(kBefore), std::nullopt);
  }
}

TEST(Scenario, LinesWithoutATimeHappenAtZero) {
  EXPECT_THAT(parse("add 0001\nat 0 add 0002\nclear").due(kBefore, 0ms), ElementsAre(add("0001"), add("0002"), kClear));
}

TEST(Scenario, EventsComeInOrderOfTimeAndThenOfLines) {
  const auto scenario = parse("at 2 add 0004\nat 1 add 0002\nat 1 remove 0001\nadd 0001");
  EXPECT_THAT(scenario.due(kBefore, 2s), ElementsAre(add("0001"), add("0002"), removal("0001"), add("0004")));
}

TEST(Scenario, DueIsAfterTheOneTimeAndUpToTheOther) {
  const auto scenario = parse("at 1 add 0001\nat 2 add 0002");
  EXPECT_THAT(scenario.due(kBefore, 999ms), IsEmpty());
  EXPECT_THAT(scenario.due(999ms, 1000ms), ElementsAre(add("0001")));
  EXPECT_THAT(scenario.due(1000ms, 1999ms), IsEmpty());
  EXPECT_THAT(scenario.due(1000ms, 5000ms), ElementsAre(add("0002")));
}

TEST(Scenario, NextIsTheFirstLaterThing) {
  const auto scenario = parse("add 0000\nat 1 add 0001\nat 2 add 0002");
  EXPECT_EQ(scenario.next(kBefore), 0ms);
  EXPECT_EQ(scenario.next(0ms), 1s);
  EXPECT_EQ(scenario.next(1s), 2s);
  EXPECT_EQ(scenario.next(2s), std::nullopt);
}

TEST(Scenario, TimesAreSecondsUnlessMilliseconds) {
  const auto scenario =
      parse("at 1.5 add 0001\nat 2s add 0002\nat 2500ms add 0003\nat .0005s add 0004\nat 86400 clear");
  EXPECT_EQ(scenario.next(kBefore), 1ms);
  EXPECT_EQ(scenario.next(1ms), 1500ms);
  EXPECT_EQ(scenario.next(1500ms), 2s);
  EXPECT_EQ(scenario.next(2s), 2500ms);
  EXPECT_EQ(scenario.next(2500ms), 86400s);
}

class ScenarioLoop : public ::testing::Test {
 protected:
  const Scenario scenario_ = parse("loop 10\nadd 0001\nat 3 add 0002\nat 9.999 remove 0002");
};

TEST_F(ScenarioLoop, StartsAnewWithTheFieldCleared) {
  EXPECT_THAT(scenario_.due(kBefore, 0ms), ElementsAre(add("0001")));
  EXPECT_THAT(scenario_.due(0ms, 9999ms), ElementsAre(add("0002"), removal("0002")));
  EXPECT_THAT(scenario_.due(9999ms, 10s), ElementsAre(kClear, add("0001")));
  EXPECT_THAT(scenario_.due(10s, 13s), ElementsAre(add("0002")));
}

TEST_F(ScenarioLoop, GivesEveryRoundThatAPauseSkipped) {
  EXPECT_THAT(scenario_.due(5s, 24s), ElementsAre(removal("0002"), kClear, add("0001"), add("0002"), removal("0002"),
                                                  kClear, add("0001"), add("0002")));
}

TEST_F(ScenarioLoop, IsTheSameInSmallStepsAsInOne) {
  std::vector<Command> steps;
  for (auto time = kBefore; time < 31s; time += 1ms) {
    for (auto& command : scenario_.due(time, time + 1ms)) steps.push_back(std::move(command));
  }
  EXPECT_EQ(steps, scenario_.due(kBefore, 31s));
  EXPECT_EQ(steps.size(),
            4U * 3 - 1 - 1 + 3);  // three whole rounds, the first without clear, and the start of a fourth
}

TEST_F(ScenarioLoop, NextNeverEnds) {
  EXPECT_EQ(scenario_.next(kBefore), 0ms);
  EXPECT_EQ(scenario_.next(3s), 9999ms);
  EXPECT_EQ(scenario_.next(9999ms), 10s);
  EXPECT_EQ(scenario_.next(10s), 13s);
  EXPECT_EQ(scenario_.next(1h), 1h + 3s);
}

TEST_F(ScenarioLoop, WithNothingInItClears) {
  const auto scenario = parse("loop 1");
  EXPECT_THAT(scenario.due(kBefore, 2500ms), ElementsAre(kClear, kClear));
  EXPECT_EQ(scenario.next(2500ms), 3s);
}

struct Bad {
  const char* name;
  std::string text;
  std::string error;
};

class ScenarioErrors : public ::testing::TestWithParam<Bad> {};

TEST_P(ScenarioErrors, NameTheLineWhatWasFoundAndWhatWasExpected) {
  try {
    parse(GetParam().text);
    FAIL() << "no exception";
  } catch (const ScenarioError& error) {
    EXPECT_EQ(error.what(), GetParam().error);
  }
}

const std::string kTime = "; expected seconds such as 1.5, 2s or 500ms, from 0 to 86400s";

INSTANTIATE_TEST_SUITE_P(
    Cases, ScenarioErrors,
    ::testing::Values(
        Bad{"UnknownWord", "clear\n\nad 0001\n",
            "demo.txt:3: unknown word \"ad\"; expected add, remove, clear, fault, host, at or loop"},
        Bad{"UnknownCommandAtATime", "at 1 ad 0001",
            "demo.txt:1: unknown command \"ad\"; expected add, remove, clear, fault or host"},
        Bad{"LoopAtATime", "at 1 loop 2",
            "demo.txt:1: unknown command \"loop\"; expected add, remove, clear, fault or host"},
        Bad{"BadCommand", "# first\nat 1 add 0001 p=2", "demo.txt:2: probability \"2\"; expected 0.0 to 1.0"},
        Bad{"AtWithoutTime", "at", "demo.txt:1: too few words after \"at\"; expected \"at TIME COMMAND\""},
        Bad{"AtWithoutCommand", "at 1", "demo.txt:1: too few words after \"at\"; expected \"at TIME COMMAND\""},
        Bad{"TimeNotANumber", "at soon clear", "demo.txt:1: time \"soon\"" + kTime},
        Bad{"TimeOnlyUnit", "at ms clear", "demo.txt:1: time \"ms\"" + kTime},
        Bad{"TimeNegative", "at -1 clear", "demo.txt:1: time \"-1\"" + kTime},
        Bad{"TimeInMinutes", "at 1min clear", "demo.txt:1: time \"1min\"" + kTime},
        Bad{"TimeInfinite", "at inf clear", "demo.txt:1: time \"inf\"" + kTime},
        Bad{"TimeNan", "at nan clear", "demo.txt:1: time \"nan\"" + kTime},
        Bad{"TimeTooLong", "at 86400.001 clear", "demo.txt:1: time \"86400.001\"" + kTime},
        Bad{"LoopWithoutTime", "loop", "demo.txt:1: no time after \"loop\"; expected \"loop TIME\""},
        Bad{"LoopWithMore", "loop 1 2", "demo.txt:1: too many words after \"loop\"; expected \"loop TIME\""},
        Bad{"LoopZero", "loop 0.0001", "demo.txt:1: loop time \"0.0001\"; expected at least 1ms"},
        Bad{"LoopTwice", "loop 1\nloop 2", "demo.txt:2: a second \"loop\"; expected at most one"},
        Bad{"EventAtTheLoop", "at 1 clear\nat 10 clear\nloop 10",
            "demo.txt:2: time 10000ms is never reached; expected less than the loop's 10000ms"}),
    [](const auto& test) { return test.param.name; });

std::string error_of_loading(const std::string& path) {
  try {
    Scenario::load(path);
    return "no exception";
  } catch (const ScenarioError& error) {
    return error.what();
  }
}

TEST(ScenarioHost, LinesComeAtTheirTimeAmongTheOthers) {
  const auto scenario = parse("at 1 host gpio set 1 1\nat 1 add 0001\nhost rex");
  EXPECT_THAT(scenario.due(kBefore, 1s),
              ElementsAre(Command(TellHost{"rex"}), Command(TellHost{"gpio set 1 1"}), add("0001")));
}

TEST(ScenarioHost, LineThatTheHostDoesNotTakeIsNamed) {
  const auto check = [](const std::string& line) {
    if (line != "rex") throw CommandError("unknown word \"" + line + "\"; expected rex");
  };
  EXPECT_NO_THROW(Scenario::parse("host rex", "demo.txt", check));
  try {
    Scenario::parse("host rex\nat 2 host rox", "demo.txt", check);
    FAIL() << "taken";
  } catch (const ScenarioError& error) {
    EXPECT_STREQ(error.what(), "demo.txt:2: unknown word \"rox\"; expected rex");
  }
}

TEST(ScenarioLoad, ReadsAFileAndNamesItInErrors) {
  const std::string path = ::testing::TempDir() + "uhfsim_scenario_" + std::to_string(getpid());
  std::ofstream(path) << "add 0001\r\nat 1 remove 0001";
  EXPECT_THAT(Scenario::load(path).due(kBefore, 1s), ElementsAre(add("0001"), removal("0001")));
  std::ofstream(path) << "add 0001\nadd";
  EXPECT_THAT(error_of_loading(path), HasSubstr(path + ":2: too few words"));
  std::ofstream(path, std::ios::trunc).close();
  EXPECT_THAT(Scenario::load(path).due(kBefore, 1s), IsEmpty());
  std::remove(path.c_str());
}

TEST(ScenarioLoad, FileThatCannotBeReadIsNamedWithTheReason) {
  EXPECT_EQ(error_of_loading("/nowhere/demo.txt"),
            "/nowhere/demo.txt: the file cannot be read (No such file or directory); expected a scenario file");
  EXPECT_EQ(error_of_loading("/tmp"), "/tmp: the file cannot be read (Is a directory); expected a scenario file");
}

// EPCs in the field at a time of the demonstration, by their last four bytes.
std::vector<Bytes> demonstration_at(Scenario::Time time) {
  Field field;
  FaultInjector faults(1);
  const auto scenario = Scenario::load(UHFSIM_EXAMPLE_SCENARIO);
  for (const Command& command : scenario.due(kBefore, time)) apply(command, field, faults);
  std::vector<Bytes> epcs;
  for (const Tag& tag : field.snapshot()) epcs.emplace_back(tag.epc.end() - 4, tag.epc.end());
  return epcs;
}

TEST(ExampleScenario, ShowsOneThatStaysTwoAtOnceAndAPasserBy) {
  const Bytes stays = hex("00000001");
  for (const auto round : {0s, 10s, 20s}) {
    EXPECT_THAT(demonstration_at(round), ElementsAre(stays));
    EXPECT_THAT(demonstration_at(round + 2s), ElementsAre(stays, hex("00000020"), hex("00000021")));
    EXPECT_THAT(demonstration_at(round + 5s), ElementsAre(stays));
    EXPECT_THAT(demonstration_at(round + 7300ms), ElementsAre(stays, hex("00000300")));
    EXPECT_THAT(demonstration_at(round + 7700ms), ElementsAre(stays));
  }
}

TEST(ExampleScenario, StayingCardIsThereAtEveryInstant) {
  for (auto time = 0ms; time < 21s; time += 100ms) {
    EXPECT_THAT(demonstration_at(time), ::testing::Contains(hex("00000001"))) << time.count();
  }
}

}  // namespace
}  // namespace uhfsim::testing
