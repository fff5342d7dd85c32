// achost run, as a user meets it: its output, its ends and its failures.
#include <gmock/gmock.h>
#include <signal.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <future>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "ac/exception.h"
#include "door/control/control.h"
#include "door/tests/run_fixture.h"

namespace achost::test {
namespace {

constexpr const char* kSummary =
    "[0-9]+\\.[0-9] s: [0-9]+ identifications? of [0-9]+ cards?, the door opened [0-9]+ times?\n";

// The output of a test is no terminal, as a journal is none.
TEST_F(AchostRun, CardsAreMaskedWhereNobodyAskedForThem) {
  EXPECT_THAT(Achost(simulated("good")).next_line(), testing::ContainsRegex("  card \\*\\*\\*\\*\\*9896 +refused"));
  EXPECT_THAT(Achost(simulated("good", {"--json"})).next_line(), testing::HasSubstr("\"card\":305419896,"));
}

TEST_F(AchostRun, CardsAreShownInFullOnATerminal) {
  Achost host(simulated("good"), Output::terminal);
  EXPECT_THAT(host.next_line(), testing::HasSubstr("card 305419896 (0x12345678)"));
}

TEST_F(AchostRun, PrintsALineForEachIdentification) {
  Achost host(simulated("good", {"--show-cards", "--scenario", "/dev/null"}));
  EXPECT_THAT(host.next_line(), testing::MatchesRegex("[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}  card 305419896 "
                                                      "\\(0x12345678\\) +refused, nobody's card"));
  EXPECT_NE(host.next_line().find("card 305419897 (0x12345679)"), std::string::npos);
}

TEST_F(AchostRun, SaysOnStandardErrorWhatItRuns) {
  const auto result = achost(simulated("good", {"--seconds", "0.5", "--scenario", "/dev/null"}));
  EXPECT_THAT(result.err, testing::MatchesRegex("achost: good \\(" + plugin("good") +
                                                "\\) reads at /dev/pts/[0-9]+ \\(simulated\\); Ctrl-C ends\n"));
}

TEST_F(AchostRun, EndsByItselfAfterItsSecondsWithASummary) {
  const auto result = achost(simulated("good", {"--seconds", "1.5", "--scenario", "/dev/null"}));
  EXPECT_EQ(result.status, 0);
  std::istringstream lines(result.out);
  std::string line;
  std::string last;
  int identifications = 0;
  while (std::getline(lines, line)) {
    last = line;
    identifications += line.ends_with("refused, nobody's card") ? 1 : 0;
  }
  double seconds = 0;
  int told = -1;
  int cards = -1;
  ASSERT_EQ(std::sscanf(last.c_str(), "%lf s: %d identifications of %d cards", &seconds, &told, &cards), 3) << last;
  EXPECT_GE(seconds, 1.5);
  EXPECT_EQ(told, identifications);
  EXPECT_EQ(cards, identifications);
  EXPECT_GT(identifications, 0);
}

TEST_F(AchostRun, JsonIsOneObjectALineAndEverythingElseIsOnStandardError) {
  const auto result = achost(simulated("good", {"--seconds", "0.5", "--json", "--scenario", "/dev/null"}));
  EXPECT_EQ(result.status, 0);
  std::istringstream lines(result.out);
  std::string line;
  std::uint64_t card = 0x12345678;
  for (; std::getline(lines, line); ++card) {
    const auto object = nlohmann::json::parse(line);
    std::ostringstream hex;
    hex << "0x" << std::hex << card;
    EXPECT_EQ(object.at("event"), "identification");
    EXPECT_EQ(object.at("card"), card);
    EXPECT_EQ(object.at("card_hex"), hex.str());
    EXPECT_EQ(object.at("device_id"), 1);
    EXPECT_EQ(object.at("uuid"), "a-uuid");
    EXPECT_THAT(object.at("time").get<std::string>(),
                testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}"
                                      "[+-][0-9]{2}:[0-9]{2}"));
  }
  EXPECT_GT(card, 0x12345678U);
  EXPECT_THAT(result.err, testing::ContainsRegex(kSummary));
}

class AchostSignal : public AchostRun, public testing::WithParamInterface<int> {};

TEST_P(AchostSignal, EndsTheRunWithStatusZeroAndASummary) {
  Achost host(simulated("good"));
  EXPECT_NE(host.next_line(), "");
  host.signal(GetParam());
  const auto result = host.wait();
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, testing::ContainsRegex(kSummary));
}

INSTANTIATE_TEST_SUITE_P(BothWays, AchostSignal, testing::Values(SIGINT, SIGTERM));

TEST_F(AchostRun, ReaderOfStandardOutputThatLeavesEndsItQuietly) {
  Achost host(simulated("good", {"--json"}));
  EXPECT_NE(host.next_line(), "");
  host.close_output();
  const auto result = host.wait();
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;  // the start line
}

TEST_F(AchostRun, ReaderOfStandardOutputThatLeavesIsNoticedWithoutAnyOutput) {
  Achost host(simulated("silent"));
  host.close_output();
  EXPECT_EQ(host.wait().status, 0);
}

TEST_F(AchostRun, ClosedStoresLeaveNoLogFilesBehind) {
  EXPECT_EQ(achost(simulated("good", {"--seconds", "0.2"})).status, 0);
  std::set<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(state())) {
    files.insert(entry.path().filename());
  }
  EXPECT_EQ(files,
            std::set<std::string>({"audit.db", "journal.db", "lock", "settings.db", "settings.good", "users.db"}));
}

// Takes documents whose setting differs from one to the next, until the daemon ends.
void desire_all_the_time(const std::filesystem::path& state, std::promise<void>& begun) try {
  ControlClient client(state);
  for (int revision = 1;; ++revision) {
    client.send({{"command", "desired_apply"}, {"revision", revision}});
    client.send_bytes(R"({"user": 7, "name": "Ana"})"
                      "\n"
                      R"({"setting": "uhf.read_interval", "value": ")" +
                      std::to_string(500 + revision % 2) + "\"}\n");
    client.send_bytes("");
    EXPECT_EQ(client.receive()["ok"], true);
    if (revision == 2) {
      begun.set_value();
    }
  }
} catch (const ac::ac_exception&) {  // it has ended
}

TEST_F(AchostRun, ADesiredStateThatIsBeingTakenKeepsNoStoreFromBeingClosed) {
  for (int round = 0; round < 5; ++round) {
    Achost host(simulated("good"));
    EXPECT_NE(host.next_line(), "");
    std::promise<void> begun;
    std::thread centre([&] { desire_all_the_time(state(), begun); });
    EXPECT_EQ(begun.get_future().wait_for(kPatience), std::future_status::ready);
    host.signal(SIGTERM);
    const auto result = host.wait();
    centre.join();
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, testing::Not(testing::HasSubstr("not closed")));
  }
}

TEST_F(AchostRun, SecondHostOnTheStateIsRefusedWithThePidOfTheFirst) {
  Achost first(simulated("good"));
  EXPECT_NE(first.next_line(), "");
  const auto second = achost(simulated("good"));
  EXPECT_EQ(second.status, 1);
  EXPECT_EQ(second.err, "achost: the state directory " + state() + " is in use by process " +
                            std::to_string(first.pid()) + ": end it first, or give another directory with --state\n");
}

TEST_F(AchostRun, AHostThatIsStoppedIsNamedToWhoAsksIt) {
  const Achost host(simulated("silent"));
  const auto is_up = [&] { return achost({"status", "--state", state()}).status == 0; };
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!is_up() && std::chrono::steady_clock::now() < deadline) {
  }
  host.signal(SIGSTOP);
  const std::string pid = std::to_string(host.pid());
  const std::string line = "achost: the host on " + state() + " does not answer: it is process " + pid +
                           ", which is stopped (kill -CONT " + pid + " lets it go on)\n";
  for (const std::vector<std::string>& command : {std::vector<std::string>{"status"}, {"config", "get", "region"}}) {
    auto with_state = command;
    with_state.insert(with_state.end(), {"--state", state()});
    const auto result = achost(with_state);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, line);
  }
  host.signal(SIGCONT);
  EXPECT_TRUE(is_up());
}

TEST_F(AchostRun, SettingOfTheRunReachesThePluginAndIsNotStored) {
  const auto result = achost(simulated("throws", {"--set", "trig_gpio=9"}));
  EXPECT_NE(result.err.find("achost: a thread of the plug-in ended: Empty reply; gpio: 9\n"), std::string::npos)
      << result.err;
  EXPECT_EQ(result.status, 8);
  EXPECT_EQ(achost({"config", "get", "trig_gpio", "--state", state()}).out, "1\n");
}

TEST_F(AchostRun, BadSettingIsRefusedBeforeAnythingStarts) {
  expect_refused(simulated("good", {"--set", "read_interval"}), 2,
                 "--set read_interval: give KEY=VALUE, for example --set read_interval=5000");
  expect_refused(simulated("good", {"--set", "probe_interval=1", "--set", "transmit_power=70000"}), 2,
                 "--set transmit_power=70000: setting transmit_power cannot be \"70000\": allowed is 0 to 65535 "
                 "(0.01 dBm)");
  expect_refused(simulated("good", {"--set", "reed_interval=1"}), 2,
                 "--set reed_interval=1: there is no setting reed_interval in section uhf; the nearest is "
                 "read_interval in section uhf");
}

TEST_F(AchostRun, InteractiveTellsWhatToTryInLinesToCopy) {
  const auto result = achost(simulated("good", {"--interactive", "--seconds", "0.1"}));
  EXPECT_EQ(result.status, 0) << result.err;
  const auto programs = std::filesystem::path(ACHOST).parent_path().string();
  EXPECT_NE(result.err.find("Try in another terminal:\n  export ACHOST_STATE=\"" + state() + "\" PATH=\"" + programs +
                            ":$PATH\"\n  achost field add "),
            std::string::npos)
      << result.err;
}

TEST_F(AchostRun, WrongUsageIsRefused) {
  for (const std::vector<std::string>& options : std::vector<std::vector<std::string>>{
           {"--port", "/dev/tty9"}, {"--seconds", "0"}, {"--seconds", "soon"}, {"--nonsense"}}) {
    EXPECT_EQ(achost(simulated("good", options)).status, 2) << options.front();
  }
  EXPECT_EQ(achost(run("good", {"--seed", "1"})).status, 2);
  EXPECT_FALSE(std::filesystem::exists(state()));
}

TEST_F(AchostRun, ScenarioThatCannotBeReadIsRefused) {
  const auto result = achost(simulated("good", {"--scenario", "/no/such/scenario"}));
  EXPECT_EQ(result.status, 2);
  EXPECT_NE(result.err.find("/no/such/scenario"), std::string::npos) << result.err;
  EXPECT_FALSE(std::filesystem::exists(state()));
}

TEST_F(AchostRun, PluginThatIsNotThereIsRefused) {
  expect_refused(simulated("nowhere"), 6, "cannot load the plug-in " + plugin("nowhere") + ": there is no such file");
  expect_refused({"run", "--simulate", "--plugin", "uhf.so", "--state", state()}, 6,
                 "cannot load the plug-in uhf.so: give its absolute path");
}

struct EndCase {
  const char* plugin;
  int status;
  const char* text;
};

class AchostEnd : public AchostRun, public testing::WithParamInterface<EndCase> {};

TEST_P(AchostEnd, HasItsStatusAndSaysWhy) {
  const auto result = achost(simulated(GetParam().plugin, {"--watchdog-limit", "0.2"}));
  EXPECT_EQ(result.status, GetParam().status);
  EXPECT_NE(result.err.find(GetParam().text), std::string::npos) << result.err;
}

INSTANTIATE_TEST_SUITE_P(
    OfThePlugin, AchostEnd,
    testing::Values(EndCase{"missing_init", 6, "plugin_missing_init.so: it has no entry \"init\"\n"},
                    EndCase{"undefined_symbol", 6, "this host does not have ac::future::operation("},
                    EndCase{"no_run", 6, "its init set no main function (ac::Plugin::set_run)\n"},
                    EndCase{
                        "init_false", 3,
                        "did not start: Error opening Serial Port: No such file or directory; check the reader at "},
                    EndCase{"silent", 7, "achost: watchdog: silent has not reported for "},
                    EndCase{"returns", 8, "achost: the plug-in returns ended: its main function returned 5\n"},
                    EndCase{"throws", 8, "achost: the plug-in throws ended: Empty reply; gpio: 9\n"}),
    [](const auto& param) { return std::string(param.param.plugin); });

}  // namespace
}  // namespace achost::test
