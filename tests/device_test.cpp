// The small door device, in real processes: achost with the built plug-in on a simulated reader, and its sub-commands
// beside it.
#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <sstream>
#include <thread>

#include "door/tests/process.h"
#include "refhost/tests/support.h"

using achost::test::Achost;
using achost::test::Result;
using nlohmann::json;
using testing::HasSubstr;

namespace {

constexpr const char* kKnown = "E28011700000020A00000001";
constexpr const char* kUnknown = "E28011700000020A00000021";

class Device : public testing::Test {
 protected:
  std::string state() const { return directory_.path() / "state"; }

  Result command(std::vector<std::string> words) const {
    words.insert(words.end(), {"--state", state()});
    return achost::test::achost(std::move(words));
  }

  // The output of a command that succeeds.
  std::string output(const std::vector<std::string>& words) const {
    const auto result = command(words);
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
  }

  // A host with an empty field; when this returns its plug-in runs. Its reader may take its time on a busy machine.
  void start(std::vector<std::string> options = {}) {
    options.insert(options.begin(),
                   {"run", "--plugin", UHF_SO, "--state", state(), "--json", "--simulate", "--interactive", "--set",
                    "read_interval_diff_tags=0", "--set", "serial_port_timeout=1000"});
    host_.emplace(std::move(options));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (status().value("plugin", json()).is_null() && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }

  json status() const {
    const auto result = command({"status", "--json"});
    return result.status == 0 ? json::parse(result.out) : json::object();
  }

  // The next event of that name; null when the output ends before it.
  json next_event(const std::string& name) {
    for (std::string line; !(line = host_->next_line()).empty();) {
      if (auto object = json::parse(line); object.at("event") == name) {
        return object;
      }
    }
    return nullptr;
  }

  // The next event of each of those names, in whatever order they come.
  std::map<std::string, json> next_events(const std::set<std::string>& names) {
    std::map<std::string, json> events;
    for (std::string line; events.size() < names.size() && !(line = host_->next_line()).empty();) {
      auto object = json::parse(line);
      if (names.contains(object.at("event"))) {
        events.try_emplace(object.at("event"), std::move(object));
      }
    }
    return events;
  }

  Result end() {
    host_->signal(SIGINT);
    return host_->wait();
  }

  Achost& host() { return *host_; }

 private:
  refhost::test::TemporaryDirectory directory_;
  std::optional<Achost> host_;
};

}  // namespace

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

TEST_F(Device, AnEnrollmentMakesACardKnown) {
  start({"--set", "read_interval=250"});
  Achost enrolling({"enroll", "--user", "9", "--registration", "r-9", "--state", state()});
  EXPECT_EQ(next_event("enrollment").at("state"), "started");
  output({"field", "add", kUnknown});
  const auto result = enrolling.wait();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "card 33 (0x21) is of user 9\n");
  EXPECT_EQ(next_event("enrollment").at("state"), "done");
  EXPECT_EQ(next_event("door_open").at("reason"), "identification") << "when it is announced again";
  const auto card = json::parse(output({"card", "list", "--json"}));
  EXPECT_EQ(card.at("user"), 9);
  EXPECT_EQ(card.at("registration"), "r-9");
}

TEST_F(Device, ACardIdentifiedShortlyBeforeAnEnrollmentIsTakenOnlyAfterItsInterval) {
  start({"--set", "read_interval=1500"});
  const auto before = std::chrono::steady_clock::now();
  output({"field", "add", kUnknown});
  EXPECT_EQ(next_event("identification").at("outcome"), "unknown");
  EXPECT_EQ(output({"enroll", "--user", "9"}), "card 33 (0x21) is of user 9\n");
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(1500));
}

TEST_F(Device, AnEnrollmentWhileAnotherRunsIsRefusedAndTheFirstGoesOn) {
  start();
  Achost first({"enroll", "--user", "7", "--state", state()});
  EXPECT_EQ(next_event("enrollment").at("user_id"), 7);
  const auto second = command({"enroll", "--user", "8"});
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.err, HasSubstr("achost: enrollment of user 8: failed: another enrollment runs\n"));
  output({"field", "add", kUnknown});
  EXPECT_EQ(first.wait().out, "card 33 (0x21) is of user 7\n");
}

TEST_F(Device, AnEnrollmentEndsWithWhoeverAskedForIt) {
  start({"--set", "read_interval=250"});
  for (const int number : {SIGKILL, SIGINT}) {
    Achost asking({"enroll", "--user", "7", "--state", state()});
    EXPECT_EQ(next_event("enrollment").at("state"), "started");
    asking.signal(number);
    asking.wait();
    output({"field", "add", kUnknown});
    const auto events = next_events({"enrollment", "identification"});
    EXPECT_EQ(events.at("enrollment").at("state"), "given_up") << "signal " << number;
    EXPECT_EQ(events.at("enrollment").value("reason", ""), "whoever asked for it has gone");
    EXPECT_NE(events.at("identification").at("outcome"), "opens") << "signal " << number;
    EXPECT_EQ(output({"card", "list", "--json"}), "");
    output({"field", "clear"});
  }
  Achost next({"enroll", "--user", "8", "--state", state()});
  EXPECT_EQ(next_event("enrollment").at("state"), "started");
  output({"field", "add", kUnknown});
  EXPECT_EQ(next.wait().out, "card 33 (0x21) is of user 8\n") << "the next one is not disturbed";
}

TEST_F(Device, ASecondEnrollmentOfTheSameUserIsRefusedAndTheFirstHasItsOwnOutcome) {
  start();
  Achost first({"enroll", "--user", "7", "--state", state()});
  EXPECT_EQ(next_event("enrollment").at("user_id"), 7);
  const auto second = command({"enroll", "--user", "7"});
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.err, HasSubstr("achost: enrollment of user 7: failed: another enrollment runs\n"));
  output({"field", "add", kUnknown});
  const auto result = first.wait();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "card 33 (0x21) is of user 7\n");
}

TEST_F(Device, AnEnrollmentWithoutACardTimesOut) {
  start({"--set", "host.enroll_timeout=1000"});
  const auto result = command({"enroll", "--user", "7"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("enrollment of user 7: no card came in time\n"));
  EXPECT_THAT(end().err, HasSubstr("Falha ao cadastrar o cart\xC3\xA3o: timeout\n")) << "the plug-in's own words";
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

TEST_F(Device, AnImportThatIsKilledIsStoredAsAWholeOrNotAtAll) {
  start();
  const std::array<std::string, 2> values = {"600", "700"};
  std::array<std::string, 2> copies;
  for (std::size_t i = 0; i < copies.size(); ++i) {
    copies[i] = state() + values[i] + ".txt";
    std::ofstream copy(copies[i]);
    for (const char* const key : {"read_interval", "trigger_timeout", "serial_port_timeout", "host.door_open_time"}) {
      copy << key << '=' << values[i] << '\n';
    }
  }
  output({"config", "import", copies[1]});
  for (int i = 0; i < 20; ++i) {
    Achost import({"config", "import", copies[static_cast<std::size_t>(i % 2)], "--state", state()});
    std::this_thread::sleep_for(std::chrono::milliseconds(i));  // the moment of the kill, not a wait
    import.signal(SIGKILL);
    import.wait();
    output({"config", "set", "system", "usb_port_enabled", "1"});  // what was asked for before is done by then
    std::set<std::string> stored;
    std::istringstream settings(output({"config", "export"}));
    for (std::string line; std::getline(settings, line);) {
      if (line.ends_with("=600") || line.ends_with("=700")) {
        stored.insert(line.substr(line.find('=')));
      }
    }
    EXPECT_EQ(stored.size(), 1U) << "killed after " << i << " ms";
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
      {{"gpio", "set", "256", "1"}, "there is no GPIO line 256: there are lines 0 to 255"},
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

TEST_F(Device, WhatIsInTheStateDirectoryIsForItsUserAlone) {
  const mode_t before = umask(0);
  start();
  output({"card", "add", "1", "--user", "7"});
  output({"config", "set", "read_interval", "500"});
  umask(before);
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(state())) {
    names.push_back(entry.path().filename());
    EXPECT_EQ(entry.status().permissions() & std::filesystem::perms(077), std::filesystem::perms::none) << entry.path();
  }
  EXPECT_THAT(names, testing::IsSupersetOf({"settings.db", "settings.db-wal", "settings.db-shm", "audit.db",
                                            "audit.db-wal", "users.db", "lock", "control.sock"}));
  EXPECT_EQ(std::filesystem::status(state()).permissions(), std::filesystem::perms::owner_all);
}

TEST_F(Device, ControlCharactersReachNoTerminal) {
  start();
  EXPECT_EQ(output({"user", "put", "7", "--name", "a\x1b[2Jb"}), "");
  EXPECT_THAT(output({"user", "list"}), HasSubstr("a\\x1b[2Jb"));
  EXPECT_THAT(command({"config", "get", "a\x1b[2Jb"}).err, HasSubstr("a\\x1b[2Jb"));
  EXPECT_THAT(command({"gpio", "set", "\x1b[2J", "1"}).err, testing::Not(HasSubstr("\x1b")));
}

TEST_F(Device, UsersAndCardsAreKeptWithoutAHostToo) {
  std::filesystem::create_directory(state());
  output({"user", "put", "7", "--name", "Ana \xC3\xA7"});
  output({"card", "add", "0x21", "--user", "7"});
  output({"card", "add", "34", "--user", "8"});
  EXPECT_THAT(output({"user", "list"}), testing::ContainsRegex("7 +1 +Ana \xC3\xA7\n8 +1 +\n"));
  EXPECT_EQ(json::parse(output({"user", "list", "--json"}).substr(0, output({"user", "list", "--json"}).find('\n'))),
            json({{"user", 7}, {"name", "Ana \xC3\xA7"}, {"cards", 1}}));
  EXPECT_THAT(output({"card", "list"}), testing::ContainsRegex("33 +0x21 +7 "));
  const auto taken = command({"card", "add", "33", "--user", "9"});
  EXPECT_EQ(taken.status, 1);
  EXPECT_EQ(taken.err, "achost: card 33 is of user 7 already: remove it first\n");
  output({"card", "remove", "33"});
  EXPECT_EQ(command({"card", "remove", "33"}).err, "achost: card 33 is nobody's: achost card list shows all\n");
  output({"user", "remove", "8"});
  EXPECT_EQ(output({"card", "list", "--json"}), "");
  EXPECT_EQ(command({"user", "remove", "8"}).err, "achost: there is no user 8: achost user list shows all\n");
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

TEST_F(Device, ASecondHostIsRefusedWithTheProcessThatHoldsTheState) {
  start();
  const auto result = command({"run", "--plugin", UHF_SO, "--simulate"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("is in use by process " + std::to_string(host().pid())));
  EXPECT_EQ(status().at("plugin"), "uhf") << "the first one is still reached";
}

TEST_F(Device, DamagedDatabasesAreKeptAsideAndSaid) {
  std::filesystem::create_directories(state());
  for (const char* name : {"settings.db", "audit.db", "users.db"}) {
    std::ofstream(state() + "/" + name) << std::string(5000, *name);
  }
  start();
  std::map<std::string, int> kept;
  for (const auto& entry : std::filesystem::directory_iterator(state())) {
    const std::string name = entry.path().filename();
    if (name.find(".damaged-") != std::string::npos) {
      EXPECT_EQ(refhost::test::content_of(entry.path()), std::string(5000, name[0]));
      ++kept[name.substr(0, name.find('.'))];
    }
  }
  EXPECT_EQ(kept, (std::map<std::string, int>{{"audit", 1}, {"settings", 1}, {"users", 1}}));
  const auto errors = end().err;
  for (const char* noun : {"settings database", "audit log", "user database"}) {
    EXPECT_THAT(errors, testing::ContainsRegex(std::string("the ") + noun + " .* is damaged .*: it is kept as "));
  }
}

TEST_F(Device, ADamagedWriteAheadLogIsAnAlarmAndTheDoorOpens) {
  start();
  output({"config", "set", "read_interval", "500"});
  output({"config", "set", "read_interval", "501"});
  host().signal(SIGKILL);
  host().wait();
  EXPECT_EQ(command({"check"}).status, 0);
  std::fstream wal(state() + "/settings.db-wal", std::ios::in | std::ios::out | std::ios::binary);
  constexpr int kInTheFirstFrame = 100;
  wal.seekg(kInTheFirstFrame);
  const int byte = wal.get();
  wal.seekp(kInTheFirstFrame);
  wal.put(static_cast<char>(byte ^ 1));
  wal.close();
  const auto result = command({"check"});
  EXPECT_EQ(result.status, 10);
  EXPECT_THAT(result.out, HasSubstr("settings.db-wal cannot be read, because it is damaged"));
  start();
  EXPECT_THAT(status().at("alarms").dump(), HasSubstr("1 flipped bit hid"));
  EXPECT_EQ(output({"config", "get", "read_interval"}), "501\n");
  output({"rex"});
  EXPECT_EQ(next_event("door_open").is_null(), false);
  EXPECT_EQ(command({"check"}).status, 0) << "also beside a host";
}

TEST_F(Device, ACommandBesideAHostThatMeetsDamageSaysSoAndChangesNothing) {
  std::filesystem::create_directory(state());
  output({"card", "add", "1", "--user", "7"});
  start();
  const std::string users = state() + "/users.db";
  constexpr int kPage = 4096;
  std::fstream(users, std::ios::in | std::ios::out | std::ios::binary).seekp(3 * kPage) << std::string(kPage, 'x');
  const auto before = refhost::test::content_of(users);
  for (const std::vector<std::string>& words : {std::vector<std::string>{"card", "add", "2", "--user", "7"},
                                                {"card", "remove", "1"},
                                                {"user", "put", "8"},
                                                {"user", "remove", "7"}}) {
    const auto result = command(words);
    EXPECT_EQ(result.status, 1) << words[0] << ' ' << words[1];
    EXPECT_THAT(result.err, testing::ContainsRegex("users.db is damaged .*in use by process " +
                                                   std::to_string(host().pid()) + ": end it first"));
  }
  EXPECT_EQ(refhost::test::content_of(users), before);
  for (const auto& entry : std::filesystem::directory_iterator(state())) {
    EXPECT_THAT(entry.path().string(), testing::Not(HasSubstr(".damaged-")));
  }
}

TEST_F(Device, StoredSettingsThatWouldDisableTheDoorAreNotUsed) {
  std::filesystem::create_directory(state());
  output({"config", "set", "read_interval", "3000"});
  {
    // As an earlier version, which did not refuse them, has stored them.
    SQLite::Database database(state() + "/settings.db", SQLite::OPEN_READWRITE);
    database.exec(
        "ALTER TABLE settings DROP COLUMN sum; PRAGMA user_version = 1;"
        "INSERT INTO settings VALUES('uhf', 'probe_interval', '31000'), ('uhf', 'watchdog_timeout', "
        "'3600000'), ('uhf', 'tag_detector_enabled', '1'), ('uhf', 'tag_detector_relay', '2')");
  }
  start();
  EXPECT_EQ(output({"config", "get", "probe_interval"}), "10\n");
  EXPECT_EQ(output({"config", "get", "watchdog_timeout"}), "1000\n");
  EXPECT_EQ(output({"config", "get", "tag_detector_enabled"}), "0\n");
  for (const auto& wanted :
       std::vector<std::vector<std::string>>{{"probe_interval", "30000"}, {"tag_detector_enabled", "1"}}) {
    EXPECT_EQ(command({"config", "set", wanted[0], wanted[1]}).status, 2) << wanted[0];
  }
  // The detector's relay is the one of the start until the next one.
  output({"config", "set", "tag_detector_relay", "3"});
  EXPECT_EQ(command({"config", "set", "tag_detector_enabled", "1"}).status, 2);
  output({"config", "set", "host", "door_relay", "4"});
  output({"config", "set", "tag_detector_enabled", "1"});
  const auto errors = end().err;
  EXPECT_THAT(errors, HasSubstr("probe_interval 31000 with serial_port_timeout 150 is not possible"));
  EXPECT_THAT(errors, HasSubstr("this run has probe_interval 10"));
  EXPECT_THAT(errors, HasSubstr("this run has tag_detector_enabled 0"));
}

TEST_F(Device, StoredPowerAndChannelsThatTheRegionDoesNotAllowAreNotUsed) {
  std::filesystem::create_directory(state());
  output({"config", "set", "read_interval", "3000"});
  {
    SQLite::Database database(state() + "/settings.db", SQLite::OPEN_READWRITE);
    database.exec(
        "ALTER TABLE settings DROP COLUMN sum; PRAGMA user_version = 1;"
        "INSERT INTO settings VALUES('uhf', 'region', 'europe'), ('uhf', 'transmit_power', '3000')");
  }
  start();
  EXPECT_EQ(output({"config", "get", "transmit_power"}), "2600\n");
  EXPECT_EQ(output({"config", "get", "work_channel"}), "0-10\n");
  EXPECT_EQ(output({"config", "set", "work_channel", "0-14"}), "0-14\n");
  const auto errors = end().err;
  EXPECT_THAT(errors, HasSubstr("this run has transmit_power 2600"));
  EXPECT_THAT(errors, HasSubstr("this run has work_channel 0-10"));
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

TEST_F(Device, ADoorWhoseSettingsAreLostKeepsTheLastGoodOnesOrItsSafestMode) {
  std::filesystem::create_directory(state());
  output({"config", "set", "operation_mode", "trigger"});
  for (const char* const mode : {"trigger", "inhibit"}) {
    std::ofstream(state() + "/settings.db") << std::string(5000, 'x');
    start();
    EXPECT_EQ(output({"config", "get", "operation_mode"}), std::string(mode) + "\n");
    EXPECT_EQ(status().at("settings").at("operation_mode"), mode);
    end();
    std::filesystem::remove(state() + "/settings.good");
  }
}

TEST_F(Device, AuditRecordsAreExported) {
  start();
  output({"config", "set", "transmit_power", "2500"});
  next_event("audit");
  const auto csv = output({"audit", "export", "--format", "csv"});
  EXPECT_THAT(csv, testing::StartsWith("id,written,type,details,time\r\n1,"));
  EXPECT_THAT(csv, HasSubstr(",config,Config changed: [uhf]>[transmit_power] [value=2500],"));
  const auto record = json::parse(output({"audit", "list", "--json", "--last", "1"}));
  EXPECT_EQ(record.at("type"), "config");
  EXPECT_EQ(output({"audit", "list", "--json", "--type", "boot"}), "");
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

// What a run writes to its log once it has told of a card; standard error is a file, as a journal is one.
std::string log_of_a_run(std::vector<std::string> options) {
  options.insert(options.begin(), {"run", "--plugin", UHF_SO, "--temporary-state", "--simulate", "--debug"});
  achost::test::Achost host(options);
  constexpr int kFewLines = 10;  // an empty one may be of the story
  for (int i = 0; i < kFewLines && host.next_line().find("opens for user 1") == std::string::npos; ++i) {
  }
  host.signal(SIGTERM);
  return host.wait().err;
}

TEST_F(Device, CardsAreMaskedInTheLogUnlessTheyAreAskedFor) {
  EXPECT_THAT(log_of_a_run({}), testing::HasSubstr("Card detected! EPC: ** ** ** ** ** ** ** ** ** ** 00 01 [12]"));
  EXPECT_THAT(log_of_a_run({"--show-cards"}),
              testing::HasSubstr("Card detected! EPC: e2 80 11 70 00 00 02 0a 00 00 00 01 [12]"));
}

TEST_F(Device, ATemporaryStateGoesWithTheRun) {
  const refhost::test::TemporaryDirectory place;
  setenv("TMPDIR", place.path().c_str(), 1);
  const auto result =
      achost::test::achost({"run", "--plugin", UHF_SO, "--temporary-state", "--simulate", "--seconds", "0.3"});
  unsetenv("TMPDIR");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_TRUE(std::filesystem::is_empty(place.path()));
}
