#include "uhfsim/simulated_reader.h"

#include <gmock/gmock.h>
#include <poll.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <future>
#include <mutex>
#include <optional>
#include <span>
#include <thread>

#include "hex.h"
#include "line_client.h"

namespace uhfsim::testing {
namespace {

using ::testing::IsEmpty;
using namespace std::chrono_literals;

const Options kAtOnce{.baud = 0};

// Long enough for any machine; a passing test does not wait for it.
constexpr auto kPatience = 20s;

// What the simulator counts is told by no event, so this looks again and again.
bool becomes_true(const std::function<bool()>& condition) {
  const auto deadline = Clock::now() + kPatience;
  while (!condition()) {
    if (Clock::now() > deadline) return false;
    std::this_thread::sleep_for(1ms);
  }
  return true;
}

// Many tags with long EPCs: one inventory is answered with about 15 KB.
void fill(Field& field) {
  for (std::uint8_t i = 0; i < 200; ++i) {
    Tag tag{.epc = Bytes(62)};
    tag.epc.back() = i;
    field.add(tag);
  }
}
constexpr std::size_t kNoticeOfLongEpc = 62 + 5 + 7;
constexpr std::size_t kFullReply = 200 * kNoticeOfLongEpc;

Bytes times(int count, const Bytes& bytes) {
  Bytes all;
  for (int i = 0; i < count; ++i) all = all + bytes;
  return all;
}

TEST(SimulatedReader, AnswersOverARealTerminal) {
  SimulatedReader reader(kAtOnce);
  const LineClient client(reader.path());
  client.send(kGetPower);
  EXPECT_EQ(client.receive(kPower2600.size()), kPower2600);
}

TEST(SimulatedReader, LineIsRawBeforeTheClientSetsItUp) {
  SimulatedReader reader(kAtOnce);
  // Bytes that a terminal would take for carriage return, newline, interrupt, end of file, stop and start.
  reader.field().add({.epc = hex("0D0A 0304 1113 1A1C")});
  const LineClient client(reader.path(), LineClient::Setup::untouched);
  client.send(kInventory);
  const Bytes reply = client.receive(20);
  ASSERT_EQ(reply.size(), 20U);
  EXPECT_EQ(Bytes(reply.begin(), reply.begin() + 16), hex("7F 02 22 00 0D C8 2000 0D0A 0304 1113 1A1C"));
  EXPECT_FALSE(client.waiting()) << "the command was echoed";
}

TEST(SimulatedReader, FollowsItsField) {
  SimulatedReader reader(kAtOnce);
  const LineClient client(reader.path());
  client.send(kInventory);
  EXPECT_EQ(client.receive(kNothingRead.size()), kNothingRead);
  reader.field().add({.epc = hex("ABCD"), .rssi = 0x50});
  client.send(kInventory);
  EXPECT_EQ(client.receive(14), hex("7F 02 22 00 07 50 0800 ABCD 3799 CB 7E"));
}

TEST(SimulatedReader, TellsWhatItHasBeenTold) {
  SimulatedReader reader(kAtOnce);
  const LineClient client(reader.path());
  client.send(hex("7F 00 07 00 01 03 0B 7E"));
  ASSERT_EQ(client.receive(8).size(), 8U);
  EXPECT_EQ(reader.state().region, 3);
}

TEST(SimulatedReader, ClientMayCloseAndComeBack) {
  SimulatedReader reader(kAtOnce);
  for (int i = 0; i < 3; ++i) {
    const LineClient client(reader.path());
    client.send(kGetPower);
    EXPECT_EQ(client.receive(kPower2600.size()), kPower2600) << "visit " << i;
  }
}

bool departs(const SimulatedReader& reader, std::uint64_t times = 1) {
  return becomes_true([&] { return reader.counters().departures == times; });
}

TEST(SimulatedReader, WhatAClientLeavesUnreadIsGoneWhenItCloses) {
  SimulatedReader reader(kAtOnce);
  {
    const LineClient client(reader.path());
    client.send(kGetPower);
    ASSERT_TRUE(becomes_true([&] { return reader.counters().bytes_out == kPower2600.size(); }));
  }
  ASSERT_TRUE(departs(reader));
  const LineClient next(reader.path());
  EXPECT_FALSE(next.waiting());
  next.send(kInventory);
  EXPECT_EQ(next.receive(kNothingRead.size()), kNothingRead);
}

TEST(SimulatedReader, MoreThanTheTerminalHoldsIsGoneToo) {
  SimulatedReader reader(kAtOnce);
  fill(reader.field());
  {
    const LineClient client(reader.path());
    client.send(kInventory);
    ASSERT_EQ(client.receive_some().empty(), false);
  }
  ASSERT_TRUE(departs(reader));
  reader.field().clear();
  const LineClient next(reader.path());
  next.send(kGetPower);
  EXPECT_EQ(next.receive(kPower2600.size()), kPower2600);
  EXPECT_FALSE(next.waiting());
}

TEST(SimulatedReader, AReplyOnItsWayEndsWhenTheClientCloses) {
  SimulatedReader reader({.baud = 9600, .chunk = 10});
  fill(reader.field());  // fifteen seconds of bytes
  {
    const LineClient client(reader.path());
    client.send(kInventory);
    ASSERT_FALSE(client.receive_some().empty());
  }
  ASSERT_TRUE(departs(reader));
  const LineClient next(reader.path());
  next.send(kGetPower);
  EXPECT_EQ(next.receive(kPower2600.size()), kPower2600);
}

TEST(SimulatedReader, HalfACommandIsGoneWithItsClient) {
  SimulatedReader reader(kAtOnce);
  LineClient(reader.path()).send(hex("7F 00 07 00 40"));
  ASSERT_TRUE(departs(reader));
  const LineClient next(reader.path());
  next.send(kGetPower);
  EXPECT_EQ(next.receive(kPower2600.size()), kPower2600);
}

TEST(SimulatedReader, WhatWasSentBeforeTheClientClosedIsDone) {
  SimulatedReader reader(kAtOnce);
  LineClient(reader.path()).send(hex("7F 00 07 00 01 03 0B 7E"));
  EXPECT_TRUE(becomes_true([&] { return reader.state().region == 3; }));
}

TEST(SimulatedReader, ALineThatOneOfTwoClientsClosesGoesOn) {
  SimulatedReader reader(kAtOnce);
  const LineClient stays(reader.path());
  stays.send(kGetPower);
  ASSERT_TRUE(becomes_true([&] { return reader.counters().bytes_out == kPower2600.size(); }));
  { const LineClient goes(reader.path()); }
  EXPECT_EQ(stays.receive(kPower2600.size()), kPower2600);
  EXPECT_EQ(reader.counters().departures, 0U);
}

TEST(SimulatedReader, IsIdleWhileNobodyHasTheLineOpen) {
  SimulatedReader reader(kAtOnce);
  { LineClient(reader.path()).send(kGetPower); }
  ASSERT_TRUE(departs(reader));
  const std::clock_t before = std::clock();  // of all threads
  poll(nullptr, 0, 100);                     // in which a busy loop would show
  EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 20);
}

TEST(SimulatedReader, QuietWhenEmptySaysNothing) {
  SimulatedReader reader({.baud = 0, .quiet_when_empty = true});
  const LineClient client(reader.path());
  client.send(kInventory + kGetPower);
  EXPECT_EQ(client.receive(kPower2600.size()), kPower2600);
}

TEST(SimulatedReader, CountsWhatGoesOverTheLine) {
  SimulatedReader reader(kAtOnce);
  reader.field().add({.epc = hex("ABCD")});
  const LineClient client(reader.path());
  client.send(hex("55") + kInventory + kGetPower);
  ASSERT_EQ(client.receive(14 + 9).size(), 23U);
  ASSERT_TRUE(becomes_true([&] { return reader.counters().bytes_out == 23; }));
  const Counters counters = reader.counters();
  EXPECT_EQ(counters.commands, 2U);
  EXPECT_EQ(counters.notices, 1U);
  EXPECT_EQ(counters.skipped, 1U);
  EXPECT_EQ(counters.bytes_in, 15U);
  EXPECT_EQ(counters.overruns, 0U);
}

TEST(SimulatedReader, FaultsAreOnTheLine) {
  SimulatedReader reader(kAtOnce);
  const LineClient client(reader.path());
  reader.faults().set("corrupt-checksum", 1);
  client.send(kGetPower);
  EXPECT_EQ(client.receive(9), hex("7F 01 B7 00 02 0A 28 13 7E"));
  reader.faults().set("silence", 1);
  client.send(kGetPower);
  ASSERT_TRUE(becomes_true([&] { return reader.counters().commands == 2; }));
  reader.faults().set("silence", 0);
  reader.faults().set("corrupt-checksum", 0);
  client.send(kGetPower);
  EXPECT_EQ(client.receive(9), kPower2600);
}

TEST(SimulatedReader, ASplitAnswerComesInTwoPieces) {
  SimulatedReader reader(kAtOnce);
  const LineClient client(reader.path());
  reader.faults().set("split-at-end", 1);
  reader.field().add({.epc = hex("7E 00")});
  client.send(kInventory);
  const Bytes first = client.receive_some();
  ASSERT_FALSE(first.empty());
  EXPECT_EQ(first.back(), 0x7E);
  EXPECT_EQ(first.size() + client.receive(14 - first.size()).size(), 14U);
}

TEST(SimulatedReader, ALateAnswerComesAfterItsTime) {
  SimulatedReader reader(kAtOnce);
  const LineClient client(reader.path());
  reader.faults().set("late", 1);
  const auto start = Clock::now();
  client.send(kGetPower);
  EXPECT_EQ(client.receive(9), kPower2600);
  EXPECT_GE(Clock::now() - start, FaultInjector::kLate);
}

TEST(SimulatedReader, HangsUpInTheMiddleAndComesBack) {
  std::promise<std::string> back;
  SimulatedReader reader({.baud = 0, .on_hang_up = [&](const std::string& path) { back.set_value(path); }});
  reader.faults().set("hang-up", 1);
  {
    const LineClient client(reader.path());
    client.send(kGetPower);
    EXPECT_TRUE(client.hangs_up());
  }
  const std::string path = back.get_future().get();
  EXPECT_EQ(path, reader.path());
  EXPECT_EQ(reader.counters().hang_ups, 1U);
  reader.faults().clear();
  const LineClient client(path);
  client.send(kGetPower);
  EXPECT_EQ(client.receive(9), kPower2600);
}

TEST(SimulatedReaderPacing, ReplyTakesItsTimeOnTheLineAndComesWhole) {
  SimulatedReader reader({.baud = 300});
  const LineClient client(reader.path());
  const auto start = Clock::now();
  client.send(kGetPower);
  EXPECT_EQ(client.receive_some(), kPower2600);
  EXPECT_GE(Clock::now() - start, LinePacing(300).duration(kPower2600.size()));
}

TEST(SimulatedReaderPacing, NextReplyWaitsUntilTheLineIsFree) {
  SimulatedReader reader({.baud = 300});
  const LineClient client(reader.path());
  const auto start = Clock::now();
  client.send(kGetPower + kGetPower);
  EXPECT_EQ(client.receive(2 * kPower2600.size()), kPower2600 + kPower2600);
  EXPECT_GE(Clock::now() - start, LinePacing(300).duration(2 * kPower2600.size()));
}

TEST(SimulatedReaderPacing, ChunksArriveOneByOne) {
  SimulatedReader reader({.baud = 100, .chunk = 4});
  const LineClient client(reader.path());
  client.send(kGetPower);
  EXPECT_EQ(client.receive_some(), hex("7F 01 B7 00"));
  EXPECT_EQ(client.receive(5), hex("02 0A 28 EC 7E"));
}

TEST(SimulatedReaderPacing, UnreadBytesAreLostAndCountedWhenTheLineIsFull) {
  SimulatedReader reader({.baud = 4'000'000});
  fill(reader.field());
  const LineClient client(reader.path());
  int sent = 0;
  ASSERT_TRUE(becomes_true([&] {
    if (reader.counters().commands == static_cast<std::uint64_t>(sent)) {
      client.send(kInventory);
      ++sent;
    }
    return reader.counters().overruns > 0;
  }));
  reader.field().clear();
  const Counters counters = reader.counters();
  EXPECT_LE(counters.bytes_out + counters.overruns, static_cast<std::uint64_t>(sent) * kFullReply);
}

TEST(SimulatedReaderFullLine, WithoutPacingWaitsForTheClientAndLosesNothing) {
  SimulatedReader reader(kAtOnce);
  fill(reader.field());
  const LineClient client(reader.path());
  client.send(times(20, kInventory));
  ASSERT_TRUE(becomes_true([&] { return reader.counters().bytes_out > 0; }));
  EXPECT_LT(reader.counters().bytes_out, 20 * kFullReply) << "the line is never full";
  EXPECT_EQ(client.receive(20 * kFullReply).size(), 20 * kFullReply);
  EXPECT_EQ(reader.counters().overruns, 0U);
}

TEST(SimulatedReader, CommandsThatComeWhileItIsBusyWaitOrAreLost) {
  constexpr std::size_t kWaiting = SimulatedReader::kReceiveBuffer / 7;
  SimulatedReader reader(kAtOnce);
  fill(reader.field());
  const LineClient client(reader.path());
  client.send(times(20, kInventory));  // its answers are more than the line holds
  ASSERT_TRUE(becomes_true([&] { return reader.counters().bytes_out > 0; }));
  for (int i = 0; i < 2000; ++i) client.send(kGetPower);  // more than the line holds
  ASSERT_TRUE(becomes_true([&] { return reader.counters().bytes_in == 7 * 2020; }));
  const Bytes late = times(kWaiting, kPower2600);
  const Bytes all = client.receive(20 * kFullReply + late.size());
  ASSERT_EQ(all.size(), 20 * kFullReply + late.size());
  EXPECT_TRUE(std::ranges::equal(std::span(all).last(late.size()), late));
  EXPECT_EQ(reader.counters().lost_in, 7 * 2000 - SimulatedReader::kReceiveBuffer);
}

// Runs a reader, brings it into a state by the given step, and expects it to end without waiting for the line.
void expect_prompt_end(Options options, const std::function<void(SimulatedReader&, const LineClient&)>& step) {
  auto reader = std::make_unique<SimulatedReader>(options);
  const LineClient client(reader->path());
  step(*reader, client);
  const auto start = Clock::now();
  reader.reset();
  EXPECT_LT(Clock::now() - start, 5s);
}

TEST(SimulatedReaderStop, IsPromptWhenIdle) {
  expect_prompt_end({}, [](SimulatedReader&, const LineClient&) {});
}

TEST(SimulatedReaderStop, IsPromptInTheMiddleOfAReply) {
  // At one bit a second the reply takes a minute and a half.
  expect_prompt_end({.baud = 1}, [](SimulatedReader& reader, const LineClient& client) {
    client.send(kGetPower);
    EXPECT_TRUE(becomes_true([&] { return reader.counters().commands == 1; }));
  });
}

TEST(SimulatedReaderStop, IsPromptWhenTheLineIsFull) {
  expect_prompt_end(kAtOnce, [](SimulatedReader& reader, const LineClient& client) {
    fill(reader.field());
    client.send(times(20, kInventory));
    EXPECT_TRUE(becomes_true([&] { return reader.counters().bytes_out > 0; }));
  });
}

TEST(SimulatedReaderStop, IsPromptWhileAScenarioWaits) {
  expect_prompt_end(
      {}, [](SimulatedReader& reader, const LineClient&) { reader.play(Scenario::parse("at 1000 clear", "test")); });
}

TEST(SimulatedReaderPlay, WhatHappensAtZeroHasHappenedOnReturn) {
  SimulatedReader reader(kAtOnce);
  reader.field().add({.epc = hex("0009")});
  reader.play(Scenario::parse("add 0001\nat 1000 add 0002", "test"));
  EXPECT_THAT(reader.field().snapshot(), ::testing::ElementsAre(Tag{.epc = hex("0001")}));
}

TEST(SimulatedReaderPlay, LaterEventsComeByThemselves) {
  SimulatedReader reader(kAtOnce);
  reader.play(Scenario::parse("at 30ms add 0001\nat 60ms fault silence 1", "test"));
  EXPECT_TRUE(becomes_true([&] { return reader.field().snapshot().size() == 1; }));
  EXPECT_TRUE(becomes_true([&] { return reader.faults().intercept(kPower2600).empty(); }));
}

TEST(SimulatedReaderPlay, HandsTheHostItsLines) {
  std::mutex mutex;  // guards lines
  std::vector<std::string> lines;
  Options options = kAtOnce;
  options.on_host_line = [&](const std::string& line) {
    const std::lock_guard lock(mutex);
    lines.push_back(line);
  };
  SimulatedReader reader(options);
  reader.play(Scenario::parse("host first\nat 1ms host then this", "demo.txt"));
  EXPECT_TRUE(becomes_true([&] {
    const std::lock_guard lock(mutex);
    return lines.size() == 2;
  }));
  EXPECT_THAT(lines, ::testing::ElementsAre("first", "then this"));
}

TEST(SimulatedReaderPlay, ReplacesTheScenarioBefore) {
  SimulatedReader reader(kAtOnce);
  reader.play(Scenario::parse("loop 20ms\nadd 0001", "test"));
  reader.play(Scenario::parse("at 100ms add 0002", "test"));
  EXPECT_TRUE(becomes_true([&] { return !reader.field().snapshot().empty(); }));
  EXPECT_THAT(reader.field().snapshot(), ::testing::ElementsAre(Tag{.epc = hex("0002")}));
}

TEST(SimulatedReaderPlay, CardThatStaysOverTheLoopIsNeverMissed) {
  SimulatedReader reader(kAtOnce);
  reader.play(Scenario::parse("loop 1ms\nadd ABCD", "test"));
  const LineClient client(reader.path());
  for (int i = 0; i < 300; ++i) {
    client.send(kInventory);
    ASSERT_EQ(client.receive(14).size(), 14U);
  }
  EXPECT_EQ(reader.counters().notices, 300U);
}

}  // namespace
}  // namespace uhfsim::testing
