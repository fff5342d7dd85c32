// The check of plug-ins names the clause that a broken one breaks.
#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <ostream>

#include "checked.h"
#include "refhost/tests/support.h"

namespace {

using plugin_check_test::broken_in;
using plugin_check_test::check;
using plugin_check_test::Numbers;
using plugin_check_test::plugin;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

std::string text_of(const std::string& file) {
  std::ifstream stream(file);
  EXPECT_TRUE(stream) << file;
  return {std::istreambuf_iterator<char>(stream), {}};
}

// What is broken, the clause that says so, and the scene that finds it.
struct Broken {
  std::string name;
  std::string clause;
  std::string scene;
};

void PrintTo(const Broken& broken, std::ostream* out) { *out << broken.name; }

class BrokenPlugin : public testing::TestWithParam<Broken> {};

TEST_P(BrokenPlugin, IsFoundByItsClause) {
  const auto& [name, clause, scene] = GetParam();
  const auto result = check({plugin(name), "--level", "uhf", "--seed", "1", "--scene", scene});
  EXPECT_EQ(result.status, 1) << result.err;
  EXPECT_THAT(broken_in(result), Contains(clause)) << result.err;
}

// So that what is found in the others is what they break.
TEST(WholePlugin, NoClauseFiresOnUhfWithNothingBrokenInBetween) {
  EXPECT_THAT(broken_in(check({plugin("whole_uhf"), "--level", "uhf"})), IsEmpty());
}

TEST(BrokenPluginAsAWhole, LeavesTheOtherClausesWhole) {
  const auto result = check({plugin("no_name")});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(broken_in(result), Numbers{"2.8"}) << result.err;
}

INSTANTIATE_TEST_SUITE_P(Contract, BrokenPlugin,
                         testing::ValuesIn(std::vector<Broken>{{"needs_more", "1.1", "load"},
                                                               {"init_of_cpp", "1.2", "load"},
                                                               {"replaces_host", "1.3", "load"},
                                                               {"starts_early", "1.4", "load"},
                                                               {"cannot_be_stopped", "1.7", "start"},
                                                               {"never_starts", "2.1", "start"},
                                                               {"init_hangs", "2.2", "missing-trig_gpio"},
                                                               {"fails_without_text", "2.3", "missing-trig_gpio"},
                                                               {"init_throws_a_number", "2.4", "missing-trig_gpio"},
                                                               {"missing_setting_crashes", "2.5", "missing-trig_gpio"},
                                                               {"missing_setting_exits", "2.5", "malformed-trig_gpio"},
                                                               {"leaves_a_thread", "2.6", "missing-trig_gpio"},
                                                               {"no_run", "2.7", "start"},
                                                               {"no_name", "2.8", "start"},
                                                               {"empty_handler", "2.9", "start"},
                                                               {"keeps_plugin", "2.10", "watch"},
                                                               {"run_returns", "3.1", "watch"},
                                                               {"run_throws", "3.1", "odd-messages"},
                                                               {"handler_hangs", "3.2", "odd-messages"},
                                                               {"trusts_fields", "3.3", "odd-messages"},
                                                               {"exits_on_a_setting", "3.4", "settings"},
                                                               {"sends_without_type", "3.5", "odd-messages"},
                                                               {"silent", "4.1", "watch"},
                                                               {"falls_silent", "4.2", "watch"},
                                                               {"leaks_memory", "5.1", "growth"},
                                                               {"leaks_descriptors", "5.2", "growth"},
                                                               {"leaks_threads", "5.3", "growth"}}),
                         [](const auto& tested) { return tested.param.name; });

INSTANTIATE_TEST_SUITE_P(Uhf, BrokenPlugin,
                         testing::ValuesIn(std::vector<Broken>{{"needs_host_library", "1.5", "load"},
                                                               {"no_name", "1.6", "load"},
                                                               {"good", "2.11", "without-device"},
                                                               {"requires_nothing", "2.12", "required-trig_gpio"},
                                                               {"hides_the_end", "3.6", "hang-up"},
                                                               {"silent_worker", "4.3", "watch"},
                                                               {"unnamed_thread", "4.4", "threads"},
                                                               {"announces_nothing", "6.1", "cards"},
                                                               {"wrong_device", "6.2", "cards"},
                                                               {"same_uuid", "6.3", "cards"},
                                                               {"announces_twice", "6.4", "cards"},
                                                               {"announces_one", "6.5", "cards"},
                                                               {"ignores_answer", "6.6", "inhibit"},
                                                               {"believes_silence", "6.7", "unanswered"},
                                                               {"ignores_mode", "6.8", "trigger"},
                                                               {"forgets_exits", "6.9", "services"},
                                                               {"forgets_enrollments", "6.10", "services"},
                                                               {"suppresses_for_ever", "6.11", "services"},
                                                               {"wrong_kind", "6.12", "records"},
                                                               {"ignores_power", "6.13", "power"},
                                                               {"still_relay", "6.14", "detector"}}),
                         [](const auto& tested) { return tested.param.name; });

TEST(PluginCheck, TellsWhatWasSeenWhatItCostsAndWhatMustBe) {
  const auto result = check({plugin("fails_without_text"), "--scene", "missing-trig_gpio"});
  EXPECT_THAT(result.err,
              HasSubstr("clause 2.3: init() returned false, and its text is empty; nobody would know what is "
                        "wrong. It must be: An init() that fails says why"));
}

TEST(PluginCheck, NamesTheSignalOfACrash) {
  EXPECT_THAT(check({plugin("missing_setting_crashes"), "--scene", "missing-trig_gpio"}).err,
              HasSubstr("ended by signal 11"));
}

TEST(PluginCheck, TellsItsSeed) {
  EXPECT_THAT(check({plugin("no_name"), "--seed", "4711", "--scene", "start"}).err, HasSubstr("--seed 4711"));
}

TEST(PluginCheck, WritesAReportForBuildServers) {
  const refhost::test::TemporaryDirectory directory;
  const std::string file = directory.path() / "report.xml";
  check({plugin("no_name"), "--junit", file, "--scene", "start"});
  const auto report = text_of(file);
  EXPECT_THAT(report, HasSubstr("<testsuite name=\"plugincheck\""));
  EXPECT_THAT(report, HasSubstr("name=\"2.8 It has set a name.\"><failure message=\"its name is empty\"/>"));
  EXPECT_THAT(report, HasSubstr("<skipped message=\"it is one of --level uhf\"/>"));
}

TEST(PluginCheck, StartsScenesUnderACommand) {
  const auto result = check({plugin("good"), "--scene", "load", "--verbose", "--under", "strace-of-nobody"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("starting a scene: No such file or directory"));
  const auto clean = check({plugin("good"), "--scene", "start", "--under", "env TMPDIR=/tmp"});
  EXPECT_EQ(clean.status, 0) << clean.err;
}

TEST(PluginCheck, WrongUsageIsSaidInOneLine) {
  EXPECT_EQ(check({}).status, 2);
  const auto missing = check({"/nowhere.so"});
  EXPECT_EQ(missing.status, 2);
  EXPECT_EQ(missing.err, "plugincheck: there is no file /nowhere.so; give the path of a plug-in\n");
  EXPECT_EQ(check({plugin("good"), "--level", "none"}).status, 2);
  EXPECT_EQ(check({plugin("good"), "--scene", "none"}).status, 2);
  EXPECT_EQ(check({plugin("good"), "--set", "nothing"}).status, 2);
}

TEST(PluginCheck, WhatIsNoSharedObjectIsAFinding) {
  const refhost::test::TemporaryDirectory directory;
  const std::string file = directory.path() / "text.so";
  std::ofstream(file) << "no plug-in";
  const auto result = check({file});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("clause 1.1: it is no"));
}

}  // namespace
