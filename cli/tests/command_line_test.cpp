#include "cli/command_line.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace cli {
namespace {

// A program with the commands "inventory" and "power get|set", and options at each.
class CommandLine : public testing::Test {
 protected:
  CommandLine() {
    set_up_help(app);
    app.require_subcommand(1);
    app.fallthrough();
    app.add_option("--port", port, "Where it is")->envname("SOME_PORT")->type_name("DEVICE");
    auto& inventory = *app.add_subcommand("inventory", "Look");
    inventory.add_option("--seconds", seconds, "How long")->capture_default_str()->check(range(0.0, 1e6));
    auto& power = *app.add_subcommand("power", "The power")->require_subcommand(1);
    power.add_subcommand("get", "Ask");
    auto& set = *power.add_subcommand("set", "Tell");
    set.add_option("KEY", words, "What")->type_name("[SECTION] KEY")->required()->expected(1, 2);
    auto& steps = *app.add_subcommand("steps", "Go");
    steps.add_option("--from", range_of_steps, "Which")->type_name("FROM:TO:STEP");
    steps.add_option("--times", times, "How often")->type_name("N")->check(whole_number());
    steps.add_option("--pace", pace, "slow or fast")->type_name("PACE")->check(one_of({"slow", "fast"}));
    steps.add_option("A B", pair, "Two")->type_name("A B")->expected(2);
  }

  // What is said of that command line; empty when nothing is wrong with it.
  std::string error(std::vector<const char*> words_given) {
    words_given.insert(words_given.begin(), "tool");
    try {
      app.parse(static_cast<int>(words_given.size()), words_given.data());
      return "";
    } catch (const CLI::ParseError& failure) {
      return usage_error(app, failure, static_cast<int>(words_given.size()), words_given.data());
    }
  }

  CLI::App app{"A tool.", "tool"};
  std::string port;
  double seconds = 5;
  std::vector<std::string> words;
  std::string range_of_steps;
  std::int64_t times = 0;
  std::string pace;
  std::vector<std::string> pair;
};

TEST_F(CommandLine, AnUnknownCommandIsNamedWithTheNearest) {
  EXPECT_EQ(error({"inventorry"}), "there is no command \"inventorry\": did you mean \"inventory\"?; see tool --help");
  EXPECT_EQ(error({"power", "sett"}),
            "there is no command \"power sett\": did you mean \"power set\"?; see tool power --help");
  EXPECT_EQ(error({"--port", "get", "pwer", "get"}),
            "there is no command \"pwer\": did you mean \"power\"?; see tool --help");
}

TEST_F(CommandLine, AWordLikeNoneGetsNoSuggestion) {
  EXPECT_EQ(error({"xyzzy"}), "there is no command \"xyzzy\"; see tool --help");
}

TEST_F(CommandLine, AnUnknownOptionIsNamedWithTheNearestThatMayStandThere) {
  EXPECT_EQ(error({"inventory", "--secnods", "3"}),
            "there is no option \"--secnods\": did you mean \"--seconds\"?; see tool inventory --help");
  EXPECT_EQ(error({"inventory", "--prt=x"}),
            "there is no option \"--prt\": did you mean \"--port\"?; see tool inventory --help");
  EXPECT_EQ(error({"power", "get", "--second", "3"}), "there is no option \"--second\"; see tool power get --help");
}

TEST_F(CommandLine, AMissingCommandIsOneOfThese) {
  EXPECT_EQ(error({}), "give a command: inventory, power, steps; see tool --help");
  EXPECT_EQ(error({"power"}), "give a command of \"power\": get, set; see tool power --help");
}

TEST_F(CommandLine, WhatElseIsWrongIsSaidToo) {
  EXPECT_EQ(error({"inventory", "stray"}), "The following argument was not expected: stray; see tool inventory --help");
  EXPECT_EQ(error({"inventory", "--seconds", "-1"}),
            "--seconds: \"-1\" is no number from 0 to 1000000; see tool inventory --help");
  EXPECT_EQ(error({"inventory", "--seconds", "x"}),
            "--seconds: \"x\" is no number from 0 to 1000000; see tool inventory --help");
}

TEST_F(CommandLine, AValueThatIsWrongOrMissingIsSaidInThePersonsWords) {
  EXPECT_EQ(error({"steps", "--times", "x"}), "--times: \"x\" is no whole number; see tool steps --help");
  EXPECT_EQ(error({"steps", "--times", "-3"}), "");
  EXPECT_EQ(error({"steps", "--pace", "slw"}), "--pace: \"slw\" is none of slow, fast; see tool steps --help");
  EXPECT_EQ(error({"steps", "--pace", "Slow"}), "");
  EXPECT_EQ(error({"steps", "--times"}), "--times: a value is missing; see tool steps --help");
  EXPECT_EQ(error({"steps", "1"}), "A B: a value is missing; see tool steps --help");
}

TEST_F(CommandLine, ANameWithColonsStaysWhole) {
  const auto help = app.get_subcommand("steps")->help();
  EXPECT_NE(help.find("  --from FROM:TO:STEP         Which\n"), std::string::npos) << help;
  EXPECT_NE(help.find("  --times N                   How often\n"), std::string::npos) << help;
}

TEST_F(CommandLine, HelpNamesValuesByWhatTheyAre) {
  const auto help = app.get_subcommand("inventory")->help();
  EXPECT_NE(help.find("  --seconds SECONDS           How long (0 to 1000000; default: 5)\n"), std::string::npos)
      << help;
  const auto set = app.get_subcommand("power")->get_subcommand("set")->help();
  EXPECT_NE(set.find("set [OPTIONS] [SECTION] KEY\n"), std::string::npos) << set;
  EXPECT_NE(app.help().find("  --port DEVICE               Where it is (default: $SOME_PORT)\n"), std::string::npos)
      << app.help();
}

TEST_F(CommandLine, LongHelpIsWrapped) {
  bool flag = false;
  app.add_flag("--long", flag,
               "word word word word word word word word word word word word word word word word word word");
  const auto help = app.help();
  for (std::size_t begin = 0, end = 0; begin < help.size(); begin = end + 1) {
    end = help.find('\n', begin);
    EXPECT_LE(end - begin, 80U) << help.substr(begin, end - begin);
  }
}

}  // namespace
}  // namespace cli
