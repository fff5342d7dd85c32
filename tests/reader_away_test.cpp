// A reader that falls silent, goes, floods or is borrowed while the door runs, in real processes.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
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

namespace {

namespace fs = std::filesystem;

class ReaderAway : public testing::Test {
 protected:
  ReaderAway() { plug_in(); }

  fs::path port() const { return directory_.path() / "reader"; }
  std::string state() const { return directory_.path() / "state"; }

  // The port is a link, as those of /dev/serial/by-id are: each reader has a terminal of its own.
  void plug_in() {
    reader_ = std::make_unique<uhfsim::SimulatedReader>(uhfsim::Options{.seed = 3});
    reader_->field().add({.epc = {0xE2, 0x00, 0x68, 0x0A, 0x12, 0x34}});
    fs::remove(port());
    fs::create_symlink(reader_->path(), port());
  }
  void pull_out() {
    fs::remove(port());
    reader_.reset();
  }

  Achost start(std::vector<std::string> options = {}) const {
    options.insert(options.begin(),
                   {"run", "--plugin", UHF_SO, "--state", state(), "--port", port().string(), "--json"});
    return Achost(std::move(options));
  }

  Result command(std::vector<std::string> words) const {
    words.insert(words.end(), {"--state", state()});
    return Achost(std::move(words)).wait();
  }

  // The next event of that name, of a reader in that state; null when the output ends before it.
  static json next_event(Achost& host, const std::string& name, const std::string& state = "") {
    for (std::string line; !(line = host.next_line()).empty();) {
      if (auto object = json::parse(line);
          object.at("event") == name && (state.empty() || object.at("state") == state)) {
        return object;
      }
    }
    return nullptr;
  }

  // The command's answer, once it has that status.
  Result health_becomes(int status) const {
    for (int i = 0; i < 200; ++i) {
      if (auto result = command({"health"}); result.status == status) {
        return result;
      }
      std::this_thread::sleep_for(milliseconds(50));
    }
    return command({"health"});
  }

  refhost::test::TemporaryDirectory directory_;
  std::unique_ptr<uhfsim::SimulatedReader> reader_;
};

}  // namespace

TEST_F(ReaderAway, ASilentReaderIsSaidByTheOutputTheStatusAndTheHealth) {
  auto host = start();
  ASSERT_NE(next_event(host, "identification"), nullptr);
  EXPECT_THAT(health_becomes(0).out, HasSubstr("answering for "));
  reader_->faults().set("silence", 1);
  const auto begin = std::chrono::steady_clock::now();
  const json event = next_event(host, "reader", "silent");
  EXPECT_LE(std::chrono::steady_clock::now() - begin, seconds(2));
  EXPECT_THAT(event.at("cause"), HasSubstr("does not answer"));
  EXPECT_NE(event.at("way_out"), "");
  EXPECT_THAT(health_becomes(2).out, testing::MatchesRegex("silent for [0-9]+ s: .* does not answer; .*\n"));
  EXPECT_TRUE(command({"status"}).out.starts_with("reader silent for "));
  reader_->faults().clear();
  EXPECT_NE(next_event(host, "reader", "answering"), nullptr);
  EXPECT_EQ(health_becomes(0).status, 0);
}

TEST_F(ReaderAway, ANoisyReaderHasAStatusOfItsOwn) {
  auto host = start();
  ASSERT_NE(next_event(host, "identification"), nullptr);
  reader_->faults().set("corrupt-checksum", 0.5);
  EXPECT_THAT(health_becomes(1).out, HasSubstr("noisy for "));
  const json health = json::parse(command({"health", "--json"}).out);
  EXPECT_EQ(health.at("state"), "noisy");
  EXPECT_GT(health.at("bad_share"), 0.05);
}

TEST_F(ReaderAway, WithoutAHostNobodyCanTell) {
  const auto result = command({"health"});
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.out, testing::StartsWith("unknown: "));
}

TEST_F(ReaderAway, AnAdapterThatIsPulledOutAndPutBackKeepsTheProcessAndWhatItAnnounced) {
  auto host = start({"--set", "read_interval=60000", "--set", "transmit_power=1700"});
  ASSERT_NE(next_event(host, "identification"), nullptr);
  for (std::uint8_t card = 0x35; card < 0x3A; ++card) {
    pull_out();
    EXPECT_THAT(next_event(host, "reader", "gone").at("cause"), HasSubstr("has gone"));
    EXPECT_EQ(health_becomes(2).status, 2);
    plug_in();
    EXPECT_NE(next_event(host, "reader", "answering"), nullptr);
    EXPECT_EQ(reader_->state().power, 1700);
    reader_->field().add({.epc = {0xE2, 0x00, 0x68, 0x0A, 0x12, card}});
    std::stringstream expected;
    expected << "0x680a12" << std::hex << int{card};
    EXPECT_EQ(next_event(host, "identification").at("card_hex"), expected.str())
        << "the card that was announced before is not announced again within its interval";
  }
  host.signal(SIGTERM);
  EXPECT_EQ(host.wait().status, 0);
}

TEST_F(ReaderAway, AReaderThatStaysAwayEndsTheRunForItsSupervisor) {
  auto host = start({"--set", "host.reader_give_up=2"});
  ASSERT_NE(next_event(host, "identification"), nullptr);
  pull_out();
  const auto result = host.wait();
  EXPECT_EQ(result.status, 8);
  EXPECT_THAT(result.err, HasSubstr("has not come back: there is no port"));
}

TEST_F(ReaderAway, AFloodIsSaidAndDoesNotEndTheRun) {
  auto host = start({"--watchdog-limit", "4"});
  ASSERT_NE(next_event(host, "identification"), nullptr);
  reader_->faults().set("flood", 1);
  EXPECT_EQ(health_becomes(2).status, 2);
  std::this_thread::sleep_for(seconds(5));
  reader_->faults().clear();
  EXPECT_NE(next_event(host, "reader", "answering"), nullptr);
  host.signal(SIGTERM);
  EXPECT_EQ(host.wait().status, 0);
}

TEST_F(ReaderAway, AServiceBeginsBeforeItsReaderAndLetsPeopleOutMeanwhile) {
  pull_out();
  auto host = start({"--wait"});
  EXPECT_THAT(health_becomes(2).out, HasSubstr("there is no port"));
  ASSERT_EQ(command({"rex"}).status, 0);
  EXPECT_EQ(next_event(host, "door_open").at("reason"), "exit request");
  plug_in();
  EXPECT_NE(next_event(host, "identification"), nullptr);
  host.signal(SIGTERM);
  const auto result = host.wait();
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, HasSubstr("waiting for the reader: there is no port"));
}

TEST_F(ReaderAway, WhatWentOverTheLineIsKeptAtAFaultAndOnDemand) {
  auto host = start();
  ASSERT_NE(next_event(host, "identification"), nullptr);
  reader_->faults().set("silence", 1);
  ASSERT_NE(next_event(host, "reader", "silent"), nullptr);
  const auto file = (directory_.path() / "now.uhfrec").string();
  const auto saved = command({"recording", "save", file});
  EXPECT_EQ(saved.status, 0) << saved.err;
  std::stringstream text;
  text << std::ifstream(file).rdbuf();
  EXPECT_THAT(text.str(), testing::StartsWith("# uhf recording 1\n# begins "));
  EXPECT_THAT(text.str(), HasSubstr(" > 7F00220000227E\n"));
  EXPECT_THAT(text.str(), HasSubstr(" identifier_new_card "));
  host.signal(SIGTERM);
  host.wait();
  std::vector<std::string> kept;
  for (const auto& entry : fs::directory_iterator(fs::path(state()) / "recordings")) {
    kept.push_back(entry.path().filename());
  }
  EXPECT_THAT(kept, testing::ElementsAre(testing::EndsWith("-silent.uhfrec")));
}

TEST_F(ReaderAway, AClosedTerminalEndsTheRunInOrder) {
  auto host = Achost({"run", "--plugin", UHF_SO, "--temporary-state", "--port", port().string(), "--json"});
  ASSERT_NE(next_event(host, "identification"), nullptr);
  host.signal(SIGHUP);
  EXPECT_EQ(host.wait().status, 0);
}

TEST_F(ReaderAway, WithoutTheLineThePlugInHasThePortItself) {
  auto host = start({"--direct"});
  ASSERT_NE(next_event(host, "identification"), nullptr);
  EXPECT_THAT(command({"health"}).out, testing::StartsWith("direct: "));
  const auto result = command({"recording", "save", (directory_.path() / "x").string()});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("--direct"));
  EXPECT_FALSE(fs::exists(directory_.path() / "x"));
  pull_out();
  const auto end = host.wait();
  EXPECT_EQ(end.status, 8);
  EXPECT_THAT(end.err, testing::ContainsRegex("Error while (writing to|reading from) serial port: Unknown error -1"));
}

// A borrower at the control socket, as uhfctl is one.
class Borrower {
 public:
  explicit Borrower(const std::string& state) : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = state + "/control.sock";
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    say("{\"command\": \"borrow\", \"who\": \"the test\"}\n");
    std::string answer(100, '\0');
    const auto count = recv(socket_, answer.data(), answer.size(), 0);
    answer.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    EXPECT_EQ(json::parse(answer).at("ok"), true) << answer;
  }
  ~Borrower() { close(socket_); }

  void say(const std::string& bytes) const {
    EXPECT_EQ(send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
  }

  std::string hear(std::size_t count) const {
    std::string answer(count, '\0');
    const auto got = recv(socket_, answer.data(), answer.size(), MSG_WAITALL);
    answer.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return answer;
  }

 private:
  int socket_;
};

TEST_F(ReaderAway, WhoBorrowsTheLineHasTheReaderAndTheDoorItsSettingsAfterwards) {
  auto host = start({"--set", "transmit_power=1700", "--set", "read_interval=250"});
  ASSERT_NE(next_event(host, "identification"), nullptr);
  {
    const Borrower borrower(state());
    ASSERT_NE(next_event(host, "reader", "lent"), nullptr);
    EXPECT_THAT(command({"health"}).out, HasSubstr("lent to the test"));
    borrower.say(std::string("\x7F\x00\xB6\x00\x02\x07\xD0\x8F\x7E", 9));
    EXPECT_EQ(borrower.hear(8), std::string("\x7F\x01\xB6\x00\x01\x00\xB8\x7E", 8));
    EXPECT_EQ(reader_->state().power, 2000);
    ASSERT_EQ(command({"rex"}).status, 0);
    const json opened = next_event(host, "door_open");
    EXPECT_EQ(opened.at("reason"), "exit request") << "ways out stay open, and no card is announced";
  }
  ASSERT_NE(next_event(host, "reader", "answering"), nullptr);
  EXPECT_EQ(reader_->state().power, 1700);
  EXPECT_NE(next_event(host, "identification"), nullptr);
  host.signal(SIGTERM);
  EXPECT_EQ(host.wait().status, 0);
}
