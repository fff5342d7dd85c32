#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "hex.h"
#include "line_client.h"
#include "process.h"
#include "uhfsim/pacing.h"

namespace uhfsim::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

Process start(std::vector<std::string> arguments) { return Process(UHFSIM_PROGRAM, std::move(arguments)); }

// A directory of the test's own.
class UhfSim : public ::testing::Test {
 protected:
  UhfSim() { fs::create_directory(directory_); }
  ~UhfSim() override { fs::remove_all(directory_); }

  std::string file(const std::string& name, const std::string& text) const {
    const std::string path = directory_ / name;
    std::ofstream(path) << text;
    return path;
  }

  const fs::path directory_ = fs::path(::testing::TempDir()) / ("uhfsim_" + std::to_string(getpid()));
};

TEST_F(UhfSim, FirstLineIsTheDeviceAndItAnswers) {
  Process sim = start({"--baud", "0", "--empty"});
  const LineClient client(sim.read_line());
  client.send(kGetPower);
  EXPECT_EQ(client.receive(kPower2600.size()), kPower2600);
}

TEST_F(UhfSim, InterruptTerminateAndHangUpEndItWithStatusZeroAndWithoutItsLink) {
  const auto link = (fs::temp_directory_path() / ("uhfsim_link_" + std::to_string(getpid()))).string();
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    Process sim = start({"--link", link});
    sim.read_line();
    sim.signal(signal);
    EXPECT_EQ(sim.wait(), 0);
    EXPECT_THAT(sim.read_all_errors(), IsEmpty());
    EXPECT_FALSE(fs::is_symlink(link)) << signal;
  }
}

TEST_F(UhfSim, TakesCommandsFromStandardInput) {
  Process sim = start({"--baud", "0", "--empty"});
  const LineClient client(sim.read_line());
  sim.write("add ABCD rssi=80 # a card\nadd 0001 p=0.5 pc=1234\nlist\n");
  EXPECT_EQ(sim.read_line(), "ABCD rssi=80 pc=0800 p=1");
  EXPECT_EQ(sim.read_line(), "0001 rssi=200 pc=1234 p=0.5");
  sim.write("remove 0001\nlist\n");
  EXPECT_EQ(sim.read_line(), "ABCD rssi=80 pc=0800 p=1");
  client.send(kInventory);
  EXPECT_EQ(client.receive(14), hex("7F 02 22 00 07 50 0800 ABCD 3799 CB 7E"));
  sim.write("quit\n");
  EXPECT_EQ(sim.wait(), 0);
}

TEST_F(UhfSim, BadCommandIsOneLineOnStandardErrorAndChangesNothing) {
  Process sim = start({"--empty"});
  sim.read_line();
  sim.write("add ABCD\nremove ABC\nlist now\nlist\n");
  EXPECT_EQ(sim.read_line(), "ABCD rssi=200 pc=0800 p=1");
  EXPECT_THAT(sim.read_error_line(), StartsWith("uhf-sim: EPC \"ABC\" has 3 digits; expected 2 to 62 bytes"));
  EXPECT_THAT(sim.read_error_line(), StartsWith("uhf-sim: unknown command \"list\""));
  sim.write("quit\n");
  EXPECT_EQ(sim.wait(), 0);
  EXPECT_THAT(sim.read_all_errors(), IsEmpty());
}

TEST_F(UhfSim, StatusShowsStateAndCounters) {
  Process sim = start({"--baud", "0", "--empty"});
  const LineClient client(sim.read_line());
  client.send(hex("7F 00 A9 00 03 02 01 02 B1 7E"));
  ASSERT_EQ(client.receive(8).size(), 8U);
  sim.write("status\nquit\n");
  EXPECT_THAT(sim.read_all(), AllOf(HasSubstr("power 2600\n"), HasSubstr("region 1\n"), HasSubstr("channels 1 2\n"),
                                    HasSubstr("sensitivity m=2 i=6 threshold=160\n"), HasSubstr("commands 1\n"),
                                    HasSubstr("bytes_in 10\n"), HasSubstr("overruns 0\n")));
}

TEST_F(UhfSim, HelpListsEveryCommand) {
  Process sim = start({});
  sim.read_line();
  sim.write("help\nquit\n");
  const std::string help = "\n" + sim.read_all();
  for (const char* command : {"add", "remove", "clear", "fault", "list", "status", "help", "quit"}) {
    EXPECT_THAT(help, HasSubstr(std::string("\n  ") + command + ' '));
  }
}

TEST_F(UhfSim, EndOfInputThatIsNoTerminalDoesNotEndIt) {
  Process sim = start({});
  const LineClient client(sim.read_line());
  sim.write("fault silence 0\nadd ABCD\nfault");  // the last line has no end
  sim.close_input();
  EXPECT_THAT(sim.read_error_line(), HasSubstr("too few words after \"fault\""));
  client.send(kGetPower);
  EXPECT_EQ(client.receive(kPower2600.size()), kPower2600);
  EXPECT_TRUE(sim.running());
  sim.signal(SIGTERM);
  EXPECT_EQ(sim.wait(), 0);
}

TEST_F(UhfSim, EndOfInputAtATerminalEndsIt) {
  const Descriptor keyboard(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  ASSERT_EQ(grantpt(keyboard.get()), 0);
  ASSERT_EQ(unlockpt(keyboard.get()), 0);
  const Descriptor terminal(open(ptsname(keyboard.get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
  Process sim(UHFSIM_PROGRAM, {}, terminal.get());
  sim.read_line();
  ASSERT_EQ(write(keyboard.get(), "list\n\x04", 6), 6);  // Ctrl-D
  EXPECT_EQ(sim.wait(), 0);
}

TEST_F(UhfSim, SecondsEndItByItself) {
  const auto begin = Clock::now();
  Process sim = start({"--seconds", "0.2"});
  EXPECT_EQ(sim.wait(), 0);
  EXPECT_GE(Clock::now() - begin, 200ms);
}

TEST_F(UhfSim, PlaysItsScenario) {
  Process sim = start({"--baud", "0", "--scenario", file("demo.txt", "add ABCD rssi=80\n")});
  const LineClient client(sim.read_line());
  client.send(kInventory);
  EXPECT_EQ(client.receive(14), hex("7F 02 22 00 07 50 0800 ABCD 3799 CB 7E"));
}

TEST_F(UhfSim, FaultOptionSwitchesFaultsOn) {
  Process sim = start({"--baud", "0", "--fault", "corrupt-checksum=1", "--fault", "silence=0"});
  const LineClient client(sim.read_line());
  client.send(kGetPower);
  EXPECT_EQ(client.receive(9), hex("7F 01 B7 00 02 0A 28 13 7E"));
}

TEST_F(UhfSim, TheLinkFollowsALineThatHungUp) {
  const std::string link = directory_ / "reader";
  Process sim = start({"--baud", "0", "--fault", "hang-up=1", "--link", link});
  sim.read_line();
  {
    const LineClient client(link);
    client.send(kGetPower);
    EXPECT_TRUE(client.hangs_up());
  }
  EXPECT_THAT(sim.read_error_line(), StartsWith("uhf-sim: the line has hung up and is back at /dev/pts/"));
  sim.write("fault hang-up 0\nstatus\n");
  sim.read_line();
  const LineClient client(link);
  client.send(kGetPower);
  EXPECT_EQ(client.receive(9), kPower2600);
}

TEST_F(UhfSim, QuietWhenEmptySaysNothing) {
  Process sim = start({"--baud", "0", "--empty", "--quiet-when-empty"});
  const LineClient client(sim.read_line());
  client.send(kInventory + kGetPower);
  EXPECT_EQ(client.receive(9), kPower2600);
}

TEST_F(UhfSim, SeedAndChunkReachTheReader) {
  const auto rounds = [](const std::string& seed) {
    Process sim = start({"--baud", "0", "--empty", "--chunk", "3", "--seed", seed});
    const LineClient client(sim.read_line());
    sim.write("add 0001\nadd 0002\nadd 0003\nlist\n");
    for (int i = 0; i < 3; ++i) sim.read_line();
    Bytes all;
    for (int i = 0; i < 20; ++i) {
      client.send(kInventory);
      all = all + client.receive(3 * 14);
    }
    return all;
  };
  const Bytes five = rounds("5");
  EXPECT_EQ(five.size(), 20U * 3 * 14);
  EXPECT_EQ(five, rounds("5"));
  EXPECT_NE(five, rounds("6"));
}

TEST_F(UhfSim, LinkLeadsToTheDeviceAndIsGoneAtTheEnd) {
  const std::string link = directory_ / "reader";
  Process sim = start({"--link", link});
  EXPECT_EQ(fs::read_symlink(link), sim.read_line());
  sim.signal(SIGINT);
  EXPECT_EQ(sim.wait(), 0);
  EXPECT_FALSE(fs::exists(fs::symlink_status(link)));
}

TEST_F(UhfSim, LinkReplacesAnOldLink) {
  const std::string link = directory_ / "reader";
  fs::create_symlink("/dev/pts/gone", link);
  Process sim = start({"--link", link});
  EXPECT_EQ(fs::read_symlink(link), sim.read_line());
}

TEST_F(UhfSim, LinkOfARunningSimulatorIsRefusedAndThatOneIsNamed) {
  const std::string link = directory_ / "reader";
  Process first = start({"--link", link});
  const std::string device = first.read_line();
  Process second = start({"--link", link});
  EXPECT_EQ(second.wait(), 1);
  EXPECT_EQ(second.read_all_errors(), "uhf-sim: " + link + " is the link of process " + std::to_string(first.id()) +
                                          ", a simulated reader that runs; end it, or give another path to --link\n");
  EXPECT_THAT(second.read_all(), IsEmpty());
  EXPECT_EQ(fs::read_symlink(link), device);
}

TEST_F(UhfSim, LinkOfAKilledSimulatorIsTakenOverEvenWhenItsTerminalIsSomebodysWindow) {
  const std::string link = directory_ / "reader";
  const Descriptor window(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  fs::create_symlink(ptsname(window.get()), link);
  Process sim = start({"--link", link});
  EXPECT_EQ(fs::read_symlink(link), sim.read_line());
}

TEST_F(UhfSim, LinkToARealDeviceIsLeftAlone) {
  const std::string link = directory_ / "reader";
  fs::create_symlink("/dev/null", link);
  Process sim = start({"--link", link});
  EXPECT_EQ(sim.wait(), 1);
  EXPECT_EQ(sim.read_all_errors(),
            "uhf-sim: " + link + " leads to /dev/null; remove that link, or give another path to --link\n");
}

TEST_F(UhfSim, ThreeTagsAreInTheFieldUnlessToldOtherwise) {
  Process sim = start({});
  sim.read_line();
  sim.write("list\nquit\n");
  const std::string tags = sim.read_all();
  EXPECT_EQ(std::count(tags.begin(), tags.end(), '\n'), 3) << tags;
  Process empty = start({"--empty"});
  empty.read_line();
  empty.write("list\nquit\n");
  EXPECT_THAT(empty.read_all(), IsEmpty());
}

TEST_F(UhfSim, LinkOfSomebodyElseIsLeftAlone) {
  const std::string link = directory_ / "reader";
  Process sim = start({"--link", link});
  sim.read_line();
  fs::remove(link);
  fs::create_symlink("/dev/null", link);
  sim.signal(SIGINT);
  EXPECT_EQ(sim.wait(), 0);
  EXPECT_EQ(fs::read_symlink(link), "/dev/null");
}

TEST_F(UhfSim, LinkDoesNotOverwriteAFile) {
  const std::string path = file("reader", "precious");
  Process sim = start({"--link", path});
  EXPECT_EQ(sim.wait(), 1);
  EXPECT_EQ(sim.read_all_errors(),
            "uhf-sim: " + path + " is there and is no symbolic link; give another path to --link\n");
  EXPECT_EQ(fs::file_size(path), 8U);
  EXPECT_THAT(sim.read_all(), IsEmpty());
}

TEST_F(UhfSim, LinkThatCannotBeMadeIsAFailure) {
  const std::string link = directory_ / "nowhere" / "reader";
  Process sim = start({"--link", link});
  EXPECT_EQ(sim.wait(), 1);
  EXPECT_EQ(sim.read_all_errors(), "uhf-sim: cannot make the link " + link + ": No such file or directory\n");
}

TEST_F(UhfSim, BadScenarioIsOneLineAndStatusTwo) {
  const std::string path = file("bad.txt", "clear\nat x clear\n");
  Process sim = start({"--scenario", path});
  EXPECT_EQ(sim.wait(), 2);
  EXPECT_EQ(sim.read_all_errors(),
            "uhf-sim: " + path + ":2: time \"x\"; expected seconds such as 1.5, 2s or 500ms, from 0 to 86400s\n");
  EXPECT_THAT(sim.read_all(), IsEmpty());
}

TEST_F(UhfSim, WrongUsageIsOneLineAndStatusTwo) {
  const std::vector<std::vector<std::string>> wrong = {{"--bauds", "1"},
                                                       {"--baud", "-1"},
                                                       {"--baud", "fast"},
                                                       {"--seed", "x"},
                                                       {"--chunk", "-3"},
                                                       {"--seconds", "-1"},
                                                       {"--fault", "silence"},
                                                       {"--fault", "noise=1"},
                                                       {"--fault", "silence=2"},
                                                       {"--scenario", "/nowhere"},
                                                       {"--scenario", ""},
                                                       {"--chunk", "1000001"},
                                                       {"stray"},
                                                       {"--link"}};
  for (const auto& arguments : wrong) {
    Process sim = start(arguments);
    EXPECT_EQ(sim.wait(), 2) << arguments[0];
    const std::string errors = sim.read_all_errors();
    EXPECT_THAT(errors, StartsWith("uhf-sim: "));
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
    EXPECT_THAT(sim.read_all(), IsEmpty());
  }
}

TEST_F(UhfSim, AnUnknownOptionIsNamedWithTheNearest) {
  Process sim = start({"--bauds", "1"});
  EXPECT_EQ(sim.wait(), 2);
  EXPECT_EQ(sim.read_all_errors(),
            "uhf-sim: there is no option \"--bauds\": did you mean \"--baud\"?; see uhf-sim --help\n");
}

TEST_F(UhfSim, HelpTellsTheRulesAndStatuses) {
  Process sim = start({"--help"});
  EXPECT_EQ(sim.wait(), 0);
  const std::string help = sim.read_all();
  for (const char* text : {"--scenario FILE", "--seed N", "--baud N", "--chunk N", "--quiet-when-empty", "--link PATH",
                           "--seconds N", "--fault NAME=P", "SIGINT or SIGTERM", "Exit status: 0 done, 1 failed, 2"}) {
    EXPECT_THAT(help, HasSubstr(text));
  }
  std::istringstream lines(help);
  for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80U) << line;
}

}  // namespace
}  // namespace uhfsim::testing
