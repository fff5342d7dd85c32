// The whole of it, in real processes: a tag in the field of the simulated reader becomes a line of achost.
#include <gmock/gmock.h>
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "door/tests/process.h"
#include "refhost/tests/support.h"
#include "uhfsim/scenario.h"
#include "uhfsim/simulated_reader.h"

using achost::test::Achost;
using achost::test::Result;
using nlohmann::json;
using std::chrono::milliseconds;

namespace {

// The events of that name.
std::vector<json> events(const std::string& output, const std::string& name) {
  std::vector<json> objects;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    if (auto object = json::parse(line); object.at("event") == name) {
      objects.push_back(std::move(object));
    }
  }
  return objects;
}

// The next event of that name; null when the output ends before it.
json next_event(Achost& host, const std::string& name) {
  for (std::string line; !(line = host.next_line()).empty();) {
    if (auto object = json::parse(line); object.at("event") == name) {
      return object;
    }
  }
  return nullptr;
}

// Whether an event with these fields comes, among others, before the output ends.
bool comes(Achost& host, const json& wanted) {
  for (std::string line; !(line = host.next_line()).empty();) {
    auto event = json::parse(line);
    auto merged = event;
    merged.update(wanted);
    if (merged == event) {
      return true;
    }
  }
  return false;
}

class EndToEnd : public testing::Test {
 protected:
  Achost start(std::vector<std::string> options) const {
    options.insert(options.begin(), {"run", "--plugin", UHF_SO, "--state", directory_.path() / "state", "--json"});
    return Achost(std::move(options));
  }

  std::string scenario(const std::string& text) const {
    const auto path = directory_.path() / "scenario.txt";
    std::ofstream(path) << text;
    return path;
  }

 private:
  refhost::test::TemporaryDirectory directory_;
};

}  // namespace

// The story goes round, so a step that a slow machine has missed comes again.
TEST_F(EndToEnd, TheBuiltInScenarioTellsTheWholeStory) {
  auto host = start({"--simulate"});
  const std::vector<json> steps{{{"event", "identification"}, {"card", 1}, {"outcome", "opens"}},
                                {{"event", "door_open"}, {"reason", "identification"}},
                                {{"event", "relay"}, {"on", true}},
                                {{"event", "identification"}, {"card", 33}, {"outcome", "unknown"}},
                                {{"event", "enrollment"}, {"state", "started"}, {"user_id", 2}},
                                {{"event", "enrollment"}, {"state", "done"}, {"card", 33}},
                                {{"event", "identification"}, {"card", 33}, {"outcome", "opens"}},
                                {{"event", "gpio"}, {"gpio", 1}, {"value", 1}},
                                {{"event", "gpio"}, {"gpio", 1}, {"value", 0}},
                                {{"event", "config"}, {"key", "read_interval"}, {"value", "300"}},
                                {{"event", "audit"}, {"type", "config"}},
                                {{"event", "door_open"}, {"reason", "exit request"}},
                                {{"event", "reader"}, {"state", "silent"}},
                                {{"event", "reader"}, {"state", "answering"}}};
  for (const auto& step : steps) {
    EXPECT_TRUE(comes(host, step)) << step;
  }
  host.signal(SIGINT);
  EXPECT_EQ(host.wait().status, 0);
}

TEST_F(EndToEnd, AReaderInAnotherProcessIsAPortLikeAnyOther) {
  uhfsim::SimulatedReader reader(uhfsim::Options{.seed = 3});
  reader.field().add({.epc = {0xE2, 0x00, 0x68, 0x0A, 0x12, 0x34, 0x56}});
  auto host = start({"--port", reader.path(), "--set", "identification_bits=24", "--set", "transmit_power=1700"});
  const auto event = next_event(host, "identification");
  EXPECT_EQ(event.at("card"), 0x1200003456);
  EXPECT_EQ(event.at("card_hex"), "0x1200003456");
  EXPECT_EQ(reader.state().power, 1700);
  host.signal(SIGINT);
  EXPECT_EQ(host.wait().status, 0);
}

TEST_F(EndToEnd, ARunAfterAKilledOneStartsAndReads) {
  uhfsim::SimulatedReader reader(uhfsim::Options{.seed = 3});
  reader.field().add({.epc = {0xE2, 0x00, 0x68, 0x0A, 0x12, 0x34, 0x56}});
  for (int i = 0; i < 5; ++i) {
    auto host = start({"--port", reader.path(), "--set", "probe_interval=10"});
    EXPECT_FALSE(next_event(host, "identification").is_null()) << "run " << i;
    host.signal(SIGKILL);  // in the middle of a pass, as often as not
    host.wait();
  }
}

TEST_F(EndToEnd, AReaderThatSendsByteByByteIsUnderstood) {
  uhfsim::SimulatedReader reader(uhfsim::Options{.seed = 3, .chunk = 1});
  reader.field().add({.epc = {0xE2, 0x00, 0x68, 0x0A, 0x12, 0x34}});
  auto host = start({"--port", reader.path()});
  EXPECT_EQ(next_event(host, "identification").at("card_hex"), "0x680a1234");
  host.signal(SIGTERM);
  EXPECT_EQ(host.wait().status, 0);
}

TEST_F(EndToEnd, AReaderThatDoesNotAnswerIsNamed) {
  const auto silent = scenario("fault silence 1\n");
  const auto result = start({"--simulate", "--scenario", silent}).wait();
  EXPECT_EQ(result.status, 3);
  EXPECT_THAT(result.err, testing::HasSubstr("Could no set Work Area"));
  EXPECT_EQ(std::ranges::count(result.err, '\n'), 1) << result.err;
}

// Here the plug-in has the port itself, as under a host without a line.
TEST_F(EndToEnd, APortThatFloodsForEverIsEndedByTheWatchdog) {
  uhfsim::SimulatedReader reader({.seed = 3, .chunk = 32});
  reader.field().add({.epc = {0xE2, 0x00, 0x68, 0x0A, 0x12, 0x34}});
  auto host = start({"--direct", "--port", reader.path(), "--watchdog-limit", "3"});
  EXPECT_NE(next_event(host, "identification"), nullptr);
  reader.faults().set("flood", 1);
  const auto result = host.wait();
  EXPECT_EQ(result.status, 7);
  EXPECT_THAT(result.err, testing::HasSubstr("watchdog: uhf has not reported for "));
}

TEST_F(EndToEnd, InTriggerModeNothingIsAnnouncedWithoutATrigger) {
  const auto result = start({"--simulate", "--seconds", "1", "--set", "operation_mode=trigger"}).wait();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_TRUE(events(result.out, "identification").empty());
}

TEST_F(EndToEnd, InInhibitModeTheIdleInputLetsCardsThrough) {
  auto host = start({"--simulate", "--set", "operation_mode=inhibit", "--set", "trigger_timeout=0"});
  EXPECT_EQ(next_event(host, "identification").at("event"), "identification");
  host.signal(SIGINT);
  EXPECT_EQ(host.wait().status, 0);
}

TEST_F(EndToEnd, InInhibitModeTheActiveInputSilencesTheReader) {
  const auto result =
      start({"--simulate", "--seconds", "1", "--set", "operation_mode=inhibit", "--set", "trig_idle=1"}).wait();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_TRUE(events(result.out, "identification").empty()) << "the input is 0, which is active when 1 is idle";
}
