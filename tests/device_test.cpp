// What a small door does: cards, the exit button, inputs, live settings, and the commands beside it.
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <future>
#include <thread>

#include "tests/device_fixture.h"

namespace device_test {

using testing::HasSubstr;

TEST_F(Device, AKnownCardOpensTheDoorAndAnUnknownOneDoesNot) {
  std::filesystem::create_directory(state());
  output({"card", "add", "1", "--user", "7"});
  start();
  output({"field", "add", kUnknown});
  EXPECT_EQ(next_event("identification").at("outcome"), "unknown");
  output({"field", "clear"});
  output({"field", "add", kKnown});
  const auto event = next_event("identification");
  EXPECT_EQ(event.at("outcome"), "opens");
  EXPECT_EQ(event.at("user_id"), 7);
  EXPECT_EQ(next_event("door_open").at("reason"), "identification");
}

TEST_F(Device, ASettingChangesTheRunningPluginAndABoundIsSeen) {
  start();
  const auto result = command({"config", "set", "uhf", "read_interval", "100"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "250\n");
  EXPECT_EQ(result.err, "achost: read_interval: 100 was asked for, the plug-in has made it 250\n");
  EXPECT_EQ(output({"config", "get", "read_interval"}), "250\n");
  EXPECT_EQ(output({"config", "set", "read_interval", "500"}), "500\n");
  EXPECT_EQ(next_event("config").at("key"), "work_channel_enable") << "the plug-in's own, when it sets its region";
  for (const auto& [previous, value] :
       std::vector<std::pair<std::string, std::string>>{{"3000", "100"}, {"100", "250"}, {"250", "500"}}) {
    const auto event = next_event("config");
    EXPECT_EQ(event.at("previous_value"), previous);
    EXPECT_EQ(event.at("value"), value);
  }
  EXPECT_THAT(output({"audit", "list", "--type", "config"}),
              HasSubstr("Config changed: [uhf]>[read_interval] [value=500]"));
}

TEST_F(Device, AnImportedSettingChangesTheRunningPlugin) {
  start();
  const auto copy = state() + ".txt";
  std::ofstream(copy) << "read_interval=500\ntransmit_power=2500\n";
  EXPECT_EQ(output({"config", "import", copy}), "2 settings are stored\n");
  for (const char* const key : {"read_interval", "transmit_power"}) {
    json event = next_event("config");
    while (!event.is_null() && event.at("key") != key) {  // the plug-in's own, from its start
      event = next_event("config");
    }
    EXPECT_FALSE(event.is_null()) << key;
  }
}

TEST_F(Device, ASystemSettingHasNoModule) {
  start();
  Achost events({"events", "--json", "--type", "config_param_set", "--state", state()});
  // The follower has joined the bus once it sees a change; until then there may be changes that it misses.
  std::future<std::string> line = std::async(std::launch::async, [&] { return events.next_line(); });
  for (int value = 0; line.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready; value = 1 - value) {
    output({"config", "set", "system", "usb_port_enabled", std::to_string(value)});
  }
  const auto fields = json::parse(line.get()).at("fields");
  EXPECT_FALSE(fields.contains("module"));
  EXPECT_EQ(fields.at("param"), "usb_port_enabled");
  EXPECT_EQ(fields.at("sys_config"), 1);
  events.signal(SIGINT);
  EXPECT_EQ(events.wait().status, 0);
}

// What `achost events` tells, line by line.
class Events {
 public:
  explicit Events(std::vector<std::string> words) : program_(std::move(words)) {}
  ~Events() {
    program_.signal(SIGINT);
    EXPECT_EQ(program_.wait().status, 0);
  }
  Events(const Events&) = delete;
  Events& operator=(const Events&) = delete;

  json next() {
    const std::string line = program_.next_line();
    return line.empty() ? json() : json::parse(line);
  }

  // Up to the first message of that type.
  std::vector<json> until(const std::string& type) {
    std::vector<json> lines;
    do {
      lines.push_back(next());
    } while (!lines.back().is_null() && lines.back().value("message", "") != type);
    return lines;
  }

 private:
  Achost program_;
};

TEST_F(Device, EventsGoOnFromANumberAndANewStartIsTold) {
  start();
  const auto events_behind = [this](std::int64_t number, const std::string& run) {
    return std::vector<std::string>{"events", "--json", "--after", std::to_string(number),
                                    "--run",  run,      "--state", state()};
  };
  output({"rex"});
  std::string run;
  std::int64_t last = 0;
  {
    Events events({"events", "--json", "--after", "0", "--state", state()});
    const json following = events.next();
    EXPECT_EQ(following.at("after"), 0);
    run = following.at("run");
    for (const auto& line : events.until("sec_box_rex_changed")) {
      EXPECT_EQ(line.at("number"), ++last) << line;
    }
  }
  output({"config", "set", "read_interval", "700"});  // while nobody follows
  {
    Events events(events_behind(last, run));
    EXPECT_EQ(events.next().at("after"), last);
    for (const auto& line : events.until("config_param_set")) {
      EXPECT_EQ(line.at("number"), ++last) << line;
    }
  }
  end();
  start();
  output({"rex"});
  Events events(events_behind(last, run));
  const json following = events.next();
  EXPECT_EQ(following.at("after"), 0);
  EXPECT_NE(following.at("run"), run);
  EXPECT_EQ(events.next(), json::parse(R"({"gap":{"reason":"another_run","after":0}})"));
  std::int64_t number = 0;
  for (const auto& line : events.until("sec_box_rex_changed")) {
    EXPECT_EQ(line.at("number"), ++number) << line;
  }
}

TEST_F(Device, AnOverrideOfTheRunIsShown) {
  start({"--set", "region=KOREA"});
  EXPECT_EQ(output({"config", "get", "region"}), "KOREA\n");
  EXPECT_THAT(output({"config", "list"}), testing::ContainsRegex("region +KOREA +this run"));
  end();
  EXPECT_EQ(output({"config", "get", "region"}), "BRAZIL\n");
}

TEST_F(Device, TheExitButtonOpensTheDoor) {
  start();
  EXPECT_EQ(output({"rex"}), "exit button pressed\n");
  EXPECT_EQ(next_event("door_open").at("reason"), "exit request");
  EXPECT_EQ(next_event("relay").at("relay"), 2);
}

TEST_F(Device, AfterAKillTheDoorIsShutAndThePluginReadsAgain) {
  start({"--set", "host.door_open_time=60000"});
  const auto at_rest = output({"gpio", "list"});
  output({"rex"});
  EXPECT_EQ(next_event("relay").at("on"), true);
  EXPECT_NE(output({"gpio", "list"}), at_rest);
  host().signal(SIGKILL);
  host().wait();
  start();
  EXPECT_EQ(output({"gpio", "list"}), at_rest);
  output({"field", "add", kKnown});
  EXPECT_EQ(next_event("identification").at("card"), 1);
}

// The level is idle a moment before the plug-in has heard that it became so. A reading that falls between is announced:
// then it takes another try to see the dead time.
TEST_F(Device, TheInhibitInputSilencesTheReaderUntilItsDeadTimeHasPassed) {
  constexpr std::chrono::milliseconds kDeadTime(300);
  start({"--set", "operation_mode=inhibit", "--set", "trigger_timeout=300", "--set", "read_interval=250"});
  bool waited = false;
  for (int attempt = 0; attempt < 10 && !waited; ++attempt) {
    EXPECT_EQ(output({"gpio", "set", "1", "1"}), "line 1 is 1\n");
    EXPECT_EQ(next_event("gpio").at("value"), 1);
    output({"field", "add", kKnown});
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // in which nothing may be announced
    const auto before = std::chrono::steady_clock::now();
    output({"gpio", "set", "1", "0"});
    std::vector<std::string> names;
    while (names.empty() || names.back() != "identification") {
      names.push_back(json::parse(host().next_line()).at("event"));
    }
    EXPECT_THAT(names, testing::ElementsAre("gpio", "identification")) << "nothing before the input is idle again";
    waited = std::chrono::steady_clock::now() - before >= kDeadTime;
    output({"field", "clear"});
    std::this_thread::sleep_for(std::chrono::milliseconds(300));  // for what was read before
  }
  EXPECT_TRUE(waited);
}

TEST_F(Device, StatusShowsThreadsQueuesAndReader) {
  start();
  const auto now = status();
  EXPECT_EQ(now.at("process"), host().pid());
  EXPECT_EQ(now.at("plugin"), "uhf");
  EXPECT_EQ(now.at("settings").at("region"), "BRAZIL");
  std::vector<std::string> threads;
  for (const auto& thread : now.at("threads")) {
    threads.push_back(thread.at("name"));
    EXPECT_LT(thread.at("silent_ms"), 30000);
  }
  EXPECT_THAT(threads, testing::IsSupersetOf({"uhf"}));
  EXPECT_GE(now.at("queues").size(), 6U);
  const auto table = output({"status"});
  EXPECT_THAT(table, testing::ContainsRegex("process +" + std::to_string(host().pid())));
  EXPECT_THAT(table, HasSubstr("LAST REPORTED"));
}

TEST_F(Device, BadRequestsAreNamedAndChangeNothing) {
  start();
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"config", "set", "reed_interval", "1"}, "there is no setting reed_interval in section uhf; the nearest is"},
      {{"config", "set", "read_interval", "x"}, "setting read_interval cannot be \"x\": allowed is 0 to"},
      {{"gpio", "set", "261", "1"}, "there is no GPIO line 261: there are lines 0 to 260"},
      {{"gpio", "set", "1", "2"}, "a GPIO line cannot be 2: it is 0 or 1"},
      {{"field", "add", "XYZ"}, "EPC \"XYZ\" is not hexadecimal"},
      {{"enroll", "--user", "0"}, "a user has a number of 1 or more, not 0"},
      {{"enroll", "--user", "7", "--registration", std::string(300, 'x')}, "a registration has at most 256 bytes"},
      {{"card", "add", "12x", "--user", "1"}, "\"12x\" is no card: a number such as 33 or 0x21"},
      {{"audit", "list", "--since", "soon"}, "\"soon\" is no time"},
  };
  for (const auto& [words, text] : cases) {
    const auto result = command(words);
    EXPECT_EQ(result.status, 2) << words[0] << ' ' << words[1];
    EXPECT_THAT(result.err, HasSubstr("achost: " + text));
    EXPECT_EQ(result.out, "");
  }
  EXPECT_EQ(status().at("plugin"), "uhf");
  EXPECT_EQ(output({"config", "get", "read_interval"}), "3000\n");
}

TEST_F(Device, ControlCharactersReachNoTerminal) {
  start();
  EXPECT_EQ(output({"user", "put", "7", "--name", "a\x1b[2Jb"}), "a\\x1b[2Jb (7) is added\n");
  EXPECT_THAT(output({"user", "list"}), HasSubstr("a\\x1b[2Jb"));
  EXPECT_THAT(command({"config", "get", "a\x1b[2Jb"}).err, HasSubstr("a\\x1b[2Jb"));
  EXPECT_THAT(command({"gpio", "set", "\x1b[2J", "1"}).err, testing::Not(HasSubstr("\x1b")));
}

TEST_F(Device, OutputThatNobodyReadsAnyMoreEndsQuietly) {
  start();
  Achost events({"events", "--state", state()});
  EXPECT_NE(output({"rex"}), "");
  events.close_output();
  for (bool gone = false; !gone;) {
    output({"rex"});
    siginfo_t ended{};
    waitid(P_PID, static_cast<id_t>(events.pid()), &ended, WEXITED | WNOHANG | WNOWAIT);
    gone = ended.si_pid != 0;
  }
  EXPECT_EQ(events.wait().status, 0);
}

TEST_F(Device, WithoutAHostTheWayOutIsTold) {
  for (const auto& words : std::vector<std::vector<std::string>>{
           {"status"}, {"events"}, {"rex"}, {"gpio", "list"}, {"enroll", "--user", "1"}, {"field", "show"}}) {
    const auto result = command(words);
    EXPECT_EQ(result.status, 1) << words[0];
    EXPECT_THAT(result.err, HasSubstr("no host runs on " + state() + ": start one with achost run --state " + state()));
  }
  std::filesystem::create_directory(state());
  EXPECT_EQ(output({"config", "set", "read_interval", "100"}), "100\n") << "the store alone: there is no plug-in";
}

TEST_F(Device, ARunWithSettingsThatDisableTheDoorIsRefused) {
  for (const auto& [setting, reason] : std::vector<std::pair<std::string, std::string>>{
           {"probe_interval=31000", "probe_interval 31000 with serial_port_timeout 150 is not possible"},
           {"host.door_relay=1", "tag_detector_relay and host.door_relay cannot both be 1"}}) {
    const auto result = command({"run", "--plugin", UHF_SO, "--simulate", "--seconds", "0.3", "--set",
                                 "tag_detector_enabled=1", "--set", setting});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr(reason));
  }
}

TEST_F(Device, ASupervisorHearsOfReadinessLifeAndTheEnd) {
  const std::string path = std::filesystem::temp_directory_path() / ("notify-" + std::to_string(getpid()));
  const int supervisor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  ASSERT_EQ(bind(supervisor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const timeval patience{.tv_sec = 30, .tv_usec = 0};
  setsockopt(supervisor, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  const auto heard = [supervisor](const std::string& text) {
    std::array<char, 512> buffer;
    ssize_t size = 0;
    do {
      size = recv(supervisor, buffer.data(), buffer.size(), 0);
    } while (size > 0 &&
             std::string_view(buffer.data(), static_cast<std::size_t>(size)).find(text) == std::string::npos);
    return size > 0;
  };
  setenv("NOTIFY_SOCKET", path.c_str(), 1);
  setenv("WATCHDOG_USEC", "40000", 1);
  start();
  unsetenv("NOTIFY_SOCKET");
  unsetenv("WATCHDOG_USEC");
  EXPECT_TRUE(heard("READY=1\nSTATUS=uhf reads at "));
  EXPECT_TRUE(heard("WATCHDOG=1"));
  EXPECT_TRUE(heard("WATCHDOG=1"));
  EXPECT_EQ(end().status, 0);
  EXPECT_TRUE(heard("STOPPING=1"));
  close(supervisor);
  std::filesystem::remove(path);
}

namespace {

// What a run writes to its log once it has told of a card; standard error is a file, as a journal is one.
std::string log_of_a_run(std::vector<std::string> options) {
  options.insert(options.begin(), {"run", "--plugin", UHF_SO, "--temporary-state", "--simulate", "--debug"});
  Achost host(options);
  constexpr int kFewLines = 10;  // an empty one may be of the story
  for (int i = 0; i < kFewLines && host.next_line().find("opens for user 1") == std::string::npos; ++i) {
  }
  host.signal(SIGTERM);
  return host.wait().err;
}

}  // namespace

TEST_F(Device, CardsAreMaskedInTheLogUnlessTheyAreAskedFor) {
  EXPECT_THAT(log_of_a_run({}), testing::HasSubstr("Card detected! EPC: ** ** ** ** ** ** ** ** ** ** 00 01 [12]"));
  EXPECT_THAT(log_of_a_run({"--show-cards"}),
              testing::HasSubstr("Card detected! EPC: e2 80 11 70 00 00 02 0a 00 00 00 01 [12]"));
}

}  // namespace device_test
