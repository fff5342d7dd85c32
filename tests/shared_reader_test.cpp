// uhfctl beside a door that runs, in real processes: what looks on, and what borrows the reader.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <thread>

#include "door/tests/process.h"
#include "refhost/tests/support.h"
#include "uhfsim/simulated_reader.h"

using achost::test::Achost;
using achost::test::Result;
using nlohmann::json;
using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::HasSubstr;
using testing::Not;

namespace {

namespace fs = std::filesystem;
using Words = std::vector<std::string>;

class SharedReader : public testing::Test {
 protected:
  SharedReader() { plug_in({.seed = 3}); }

  void plug_in(uhfsim::Options options) {
    reader_ = std::make_unique<uhfsim::SimulatedReader>(std::move(options));
    reader_->field().add({.epc = {0xE2, 0x00, 0x68, 0x0A, 0x12, 0x34}});
    fs::remove(port());
    fs::create_symlink(reader_->path(), port());
  }

  // A link, as those of /dev/serial/by-id are.
  fs::path port() const { return directory_.path() / "reader"; }
  std::string state() const { return directory_.path() / "state"; }
  std::string file(const std::string& name) const { return directory_.path() / name; }

  Achost start(Words options = {}) const {
    options.insert(options.begin(), {"run", "--plugin", UHF_SO, "--state", state(), "--port", port().string(), "--json",
                                     "--set", "transmit_power=1750", "--set", "region=AMERICA", "--set",
                                     "work_channel=0-9", "--set", "read_interval=250"});
    return Achost(std::move(options));
  }

  Result command(Words words) const {
    words.insert(words.end(), {"--state", state()});
    return Achost(std::move(words)).wait();
  }

  // By another name of the port than the door's.
  Words at_port(Words words) const {
    words.insert(words.begin(), {"--port", reader_->path()});
    return words;
  }
  Result uhfctl(Words words) const { return Achost(UHFCTL, at_port(std::move(words))).wait(); }

  Words survey() const {
    return {"survey", "--power", "15dBm:30dBm:1dBm", "--seconds", "10", "--overwrite", "--out", file("survey.html")};
  }

  // The next event of that name, of a reader in that state; null when the output ends before it, or a card is announced
  // where none may be.
  static json next_event(Achost& host, const std::string& name, const std::string& state = "", bool no_card = false) {
    for (std::string line; !(line = host.next_line()).empty();) {
      const auto object = json::parse(line);
      if (object.at("event") == name && (state.empty() || object.at("state") == state)) {
        return object;
      }
      if (no_card && object.at("event") == "identification") {
        ADD_FAILURE() << "announced while the line is lent: " << line;
        return nullptr;
      }
    }
    return nullptr;
  }

  bool becomes(const std::function<bool()>& condition, seconds patience = seconds(10)) const {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition() && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(milliseconds(5));
    }
    return condition();
  }

  // What the plug-in set.
  bool has_the_doors_settings() const {
    const auto now = reader_->state();
    return now.power == at_start_.power && now.region == at_start_.region && now.channels == at_start_.channels &&
           now.sensitivity == at_start_.sensitivity;
  }
  void remember_settings() {
    at_start_ = reader_->state();
    ASSERT_EQ(at_start_.power, 1750);
  }

  refhost::test::TemporaryDirectory directory_;
  std::unique_ptr<uhfsim::SimulatedReader> reader_;
  uhfsim::State at_start_;
};

std::string content_of(const std::string& path) {
  std::stringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

}  // namespace

TEST_F(SharedReader, WhatLooksOnLeavesTheDoorItsWork) {
  auto host = start();
  ASSERT_NE(next_event(host, "identification"), nullptr);
  const auto inventory = uhfctl({"inventory", "--seconds", "0.5"});
  EXPECT_EQ(inventory.status, 0) << inventory.err;
  EXPECT_THAT(inventory.out, HasSubstr("E200680A1234"));
  EXPECT_THAT(inventory.err, HasSubstr("looking on at the polls of achost (process " + std::to_string(host.pid())));
  const auto sightings = uhfctl({"inventory", "--seconds", "0.5", "--json"});
  EXPECT_EQ(json::parse(sightings.out.substr(0, sightings.out.find('\n'))).at("epc"), "E200680A1234");
  const auto recording = uhfctl({"record", file("r"), "--seconds", "0.5"});
  EXPECT_EQ(recording.status, 0) << recording.err;
  EXPECT_THAT(content_of(file("r")), testing::StartsWith("# uhf recording 1\n0.000000 "));
  EXPECT_THAT(content_of(file("r")), HasSubstr(" > 7F00220000227E\n"));
  EXPECT_THAT(content_of(file("r")), HasSubstr("E200680A1234"));
  EXPECT_THAT(uhfctl({"decode", file("r")}).out, HasSubstr("tag report: epc E200680A1234"));
  EXPECT_THAT(uhfctl({"decode", "--live", "--seconds", "0.5"}).out, HasSubstr("tag report: epc E200680A1234"));
  const auto info = json::parse(uhfctl({"info", "--json"}).out);
  EXPECT_EQ(info.at("power"), 1750);
  EXPECT_GT(info.at("round_trip_ms").at("median"), 0);
  host.signal(SIGTERM);
  std::string events = host.wait().out;
  EXPECT_THAT(events, HasSubstr("\"identification\""));
  EXPECT_THAT(events, Not(HasSubstr("\"event\":\"reader\""))) << "it was not lent, and missed nothing";
}

TEST_F(SharedReader, CtrlCEndsALookAndKeepsWhatItSaw) {
  auto host = start();
  ASSERT_NE(next_event(host, "identification"), nullptr);
  Achost record(UHFCTL, at_port({"record", file("r"), "--seconds", "0"}));
  ASSERT_TRUE(becomes([this] { return content_of(file("r")).find("E200680A1234") != std::string::npos; }));
  record.signal(SIGINT);
  EXPECT_EQ(record.wait().status, 0);
}

TEST_F(SharedReader, WhatBorrowsGivesTheDoorItsSettingsBack) {
  auto host = start();
  ASSERT_NE(next_event(host, "identification"), nullptr);
  remember_settings();
  for (const Words& words : {Words{"power", "get"},
                             {"power", "set", "2100"},
                             {"region", "set", "EUROPE"},
                             {"channels", "set", "0-5"},
                             {"sensitivity", "get"},
                             {"doctor"},
                             {"survey", "--power", "15dBm:20dBm:5dBm", "--seconds", "0.1", "--out", file("s.html")}}) {
    const auto result = uhfctl(words);
    EXPECT_EQ(result.status, 0) << words.front() << result.err;
    EXPECT_THAT(result.err, HasSubstr("lends its reader; the door reads no cards until this ends\n"));
    EXPECT_TRUE(has_the_doors_settings()) << words.front() << ": when it has ended they are back";
    EXPECT_THAT(next_event(host, "reader", "lent").at("cause"),
                testing::MatchesRegex("lent to uhfctl " + words.front() + " \\(process [0-9]+\\)"));
  }
  EXPECT_THAT(uhfctl({"power", "set", "2100"}).err, HasSubstr("`achost config set transmit_power 2100` keeps this"));
  EXPECT_EQ(uhfctl({"sensitivity", "set", "3", "5", "300"}).status, 0);
  EXPECT_EQ(reader_->state().sensitivity.threshold, 300) << "which no plug-in sets";
  EXPECT_NE(next_event(host, "identification"), nullptr) << "and cards are read";
}

TEST_F(SharedReader, WhileItIsLentPeopleGetOutAndNothingIsAnnounced) {
  auto host = start();
  ASSERT_NE(next_event(host, "identification"), nullptr);
  Achost borrower(UHFCTL, at_port(survey()));
  ASSERT_NE(next_event(host, "reader", "lent"), nullptr);
  const auto who = "lent to uhfctl survey (process " + std::to_string(borrower.pid()) + ")";
  EXPECT_THAT(command({"status"}).out, HasSubstr(who));
  ASSERT_EQ(command({"rex"}).status, 0);
  EXPECT_EQ(next_event(host, "door_open", "", true).at("reason"), "exit request");
  const auto second = uhfctl({"power", "get"});
  EXPECT_EQ(second.status, 5);
  EXPECT_THAT(second.err, HasSubstr(who + " already"));
  borrower.signal(SIGINT);
  EXPECT_NE(next_event(host, "reader", "answering", true), nullptr);
  EXPECT_EQ(borrower.wait().status, 0);
}

TEST_F(SharedReader, ABorrowerThatIsKilledLeavesTheDoorsSettings) {
  const char* const wanted = std::getenv("SHARED_READER_KILLS");
  const int kills = wanted != nullptr ? std::atoi(wanted) : USUAL_BORROWERS_KILLED;
  auto host = start();
  ASSERT_NE(next_event(host, "identification"), nullptr);
  remember_settings();
  std::mt19937 chance(20);
  int in_the_middle = 0;
  for (int i = 0; i < kills && !HasFailure(); ++i) {
    auto words = survey();
    words[4] = "0.02";
    Achost borrower(UHFCTL, at_port(words));
    ASSERT_TRUE(becomes([this] { return !has_the_doors_settings(); })) << i;
    std::this_thread::sleep_for(std::chrono::microseconds(chance() % 60'000));
    borrower.signal(SIGKILL);
    in_the_middle += has_the_doors_settings() ? 0 : 1;
    borrower.wait();
    ASSERT_NE(next_event(host, "reader", "answering"), nullptr) << i;
    ASSERT_TRUE(has_the_doors_settings()) << i;
  }
  EXPECT_GE(in_the_middle, kills * 9 / 10);
}

TEST_F(SharedReader, ABorrowerIsToldThatTheDoorTookTheReaderBack) {
  for (const bool pulled_out : {false, true}) {
    plug_in({.seed = 3});
    auto host = start();
    ASSERT_NE(next_event(host, "identification"), nullptr);
    Achost borrower(UHFCTL, at_port(survey()));
    ASSERT_NE(next_event(host, "reader", "lent"), nullptr);
    if (pulled_out) {
      fs::remove(port());
      reader_.reset();
    } else {
      host.signal(SIGTERM);
    }
    const auto result = borrower.wait();
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err,
                HasSubstr("uhfctl: achost (process " + std::to_string(host.pid()) + ") has taken its reader back"));
  }
}

TEST_F(SharedReader, ADoorThatDoesNotShareSaysHowToGoOn) {
  auto host = start({"--direct"});
  ASSERT_NE(next_event(host, "identification"), nullptr);
  for (const Words& words : {Words{"inventory"}, {"power", "get"}}) {
    const auto result = uhfctl(words);
    EXPECT_EQ(result.status, 5);
    EXPECT_THAT(result.err, HasSubstr("was started with --direct: stop it first\n"));
  }
}

TEST_F(SharedReader, ADoorThatHangsIsGivenUp) {
  auto host = start();
  ASSERT_NE(next_event(host, "identification"), nullptr);
  host.signal(SIGSTOP);
  const auto begin = std::chrono::steady_clock::now();
  const auto result = uhfctl({"power", "get"});
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("has the reader, and does not answer within 5 s"));
  EXPECT_LE(std::chrono::steady_clock::now() - begin, seconds(8));
  host.signal(SIGCONT);
}

TEST_F(SharedReader, OthersMayNotHaveTheReader) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can be somebody else";
  }
  auto host = start();
  ASSERT_NE(next_event(host, "identification"), nullptr);
  fs::permissions(directory_.path(), fs::perms(0755));
  chmod(reader_->path().c_str(), 0666);
  const auto result = achost::test::run_program(
      "/usr/bin/env", {"ACHOST_STATE=" + state(), "setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups",
                       UHFCTL, "--port", reader_->path(), "power", "get"});
  EXPECT_EQ(result.status, 5) << result.err;
  EXPECT_THAT(result.err, HasSubstr("only its user, root and its group may have its reader: sudo uhfctl"));
  EXPECT_TRUE(becomes([this] { return command({"health"}).status == 0; })) << "the door did not notice";
}

TEST_F(SharedReader, AReaderThatDoesNotStopSendingHoldsNobodyUp) {
  plug_in({.seed = 3, .baud = 0});
  auto host = start();
  ASSERT_NE(next_event(host, "identification"), nullptr) << host.wait().err;
  reader_->faults().set("flood", 1);
  ASSERT_NE(next_event(host, "reader", "silent"), nullptr);
  EXPECT_THAT(uhfctl({"doctor"}).out, HasSubstr("bytes come without end"));
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_NE(uhfctl({"power", "get"}).status, 0);
  uhfctl({"record", file("r"), "--seconds", "1"});
  EXPECT_LE(std::chrono::steady_clock::now() - begin, seconds(15));
  reader_->faults().clear();
  EXPECT_TRUE(becomes([this] { return command({"health"}).status == 0; }));
  EXPECT_EQ(uhfctl({"power", "get"}).status, 0);
}

TEST_F(SharedReader, ASilentReaderIsSaidByThoseWhoLookOn) {
  auto host = start();
  ASSERT_NE(next_event(host, "identification"), nullptr);
  Achost inventory(UHFCTL, at_port({"inventory", "--seconds", "0", "--json"}));
  ASSERT_THAT(inventory.next_line(), HasSubstr("E200680A1234"));
  reader_->faults().set("silence", 1);
  const auto result = inventory.wait();
  EXPECT_EQ(result.status, 4);
  EXPECT_THAT(result.err, HasSubstr("does not answer achost (process "));
  const auto info = uhfctl({"info"});
  EXPECT_EQ(info.status, 3);
  EXPECT_THAT(info.err, HasSubstr("the reader does not answer"));
}
