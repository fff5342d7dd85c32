// Following the bus over the control socket, as a program that has stopped and goes on.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "door/control/control_events.h"
#include "door/tests/control_fixture.h"
#include "refhost/bus_view.h"
#include "refhost/send.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class EventsFollowing : public testing::Test {
 protected:
  // Another run of the host: its numbers begin anew.
  void start_anew() {
    server_.reset();
    tap_.reset();
    ring_.emplace();
    tap_.emplace([this](const ac::Message& message) { ring_->note(message); });
    server_.emplace(directory_.path(), ControlTable({events_command(*ring_)}));
  }

  void SetUp() override { start_anew(); }

  // The numbers are the messages' own, too, as long as nobody else sends.
  void send(int count, const std::string& type = "test.event") {
    for (int i = 0; i < count; ++i) {
      refhost::send(type, {{"count", ++sent_}});
    }
  }

  Json follow(Json request) {
    client_ = std::make_unique<ControlClient>(directory_.path());
    request["command"] = "events";
    client_->send(request);
    return next();
  }

  Json next() { return client_->receive(std::chrono::milliseconds(kPatience)); }

  // What comes until that number has: the numbers of events, and the other lines as they are.
  std::vector<std::string> lines_until(std::int64_t number) {
    std::vector<std::string> lines;
    for (std::int64_t at = -1; at < number;) {
      const Json line = next();
      at = line.contains("number") ? line.at("number").get<std::int64_t>() : at;
      lines.push_back(line.contains("number") ? line.at("number").dump() : line.dump());
    }
    return lines;
  }

  Json begins(std::int64_t after, std::int64_t newest) const {
    return {{"following", true}, {"run", ring_->run()}, {"after", after}, {"newest", newest}};
  }

  TemporaryDirectory directory_;
  std::optional<EventRing> ring_;
  std::optional<refhost::BusTap> tap_;
  std::optional<ControlServer> server_;
  std::unique_ptr<ControlClient> client_;
  int sent_ = 0;
};

constexpr const char* kAnotherRun = R"({"gap":{"reason":"another_run","after":0}})";

TEST_F(EventsFollowing, WhatIsBehindTheNumberComesAndThenWhatPasses) {
  send(3);
  EXPECT_EQ(follow({{"after", 1}}), begins(1, 3));
  EXPECT_THAT(lines_until(3), ElementsAre("2", "3"));
  send(1);
  const Json line = next();
  EXPECT_EQ(line.at("number"), 4);
  EXPECT_EQ(line.at("message"), "test.event");
  EXPECT_EQ(line.at("fields"), Json::parse(R"({"count":4})"));
  EXPECT_EQ(line.at("time").get<std::string>().size(), std::string("2026-01-02T03:04:05.006+01:00").size());
}

TEST_F(EventsFollowing, WithoutANumberItBeginsWithWhatPasses) {
  send(3);
  EXPECT_EQ(follow({}), begins(3, 3));
  send(1);
  EXPECT_THAT(lines_until(4), ElementsAre("4"));
}

TEST_F(EventsFollowing, OtherTypesAreLeftOut) {
  send(1);
  send(1, "test.other");
  send(1, "test.third");
  follow({{"after", 0}, {"types", "test.other,test.third"}});
  EXPECT_THAT(lines_until(3), ElementsAre("2", "3"));
}

TEST_F(EventsFollowing, WhoComesBackWhileOthersSendLosesNothingAndGetsNothingTwice) {
  constexpr int kEvents = 20'000;
  std::atomic<std::int64_t> last = 0;
  const std::jthread sender([&](const std::stop_token& end) {
    constexpr int kAhead = 2000;  // no more than are kept
    while (sent_ < kEvents && !end.stop_requested()) {
      sent_ < last + kAhead ? send(1) : std::this_thread::yield();
    }
  });
  for (int visit = 0; last < kEvents; ++visit) {
    Json first = follow({{"after", last.load()}, {"run", ring_->run()}});
    while (first.contains("error")) {  // those who have gone leave their places soon
      first = follow({{"after", last.load()}, {"run", ring_->run()}});
    }
    ASSERT_EQ(first.at("after"), last.load());
    for (int i = 0; i <= 40 * (visit % 17) && last < kEvents; ++i) {
      const Json line = next();
      ASSERT_EQ(line.at("number"), last + 1) << line;
      ASSERT_EQ(line.at("fields").at("count"), last + 1) << line;
      ++last;
    }
  }
}

TEST_F(EventsFollowing, NumbersThatAreGoneAreSaid) {
  const int more = 10;
  const int all = static_cast<int>(EventRing::kMostEvents) + more;
  send(all);
  EXPECT_EQ(follow({{"after", 4}}), begins(4, all));
  EXPECT_EQ(next().dump(), R"({"gap":{"reason":"gone","first":5,"last":10}})");
  EXPECT_EQ(lines_until(all).size(), EventRing::kMostEvents);
  follow({{"after", more}});
  EXPECT_EQ(next().at("number"), more + 1) << "nothing is missing behind the tenth";
}

// What it has not read is in the ring, as far as that reaches, and nowhere else.
TEST_F(EventsFollowing, WhoReadsSlowlyGetsWhatIsKeptAndIsToldOfTheRest) {
  ASSERT_EQ(follow({}), begins(0, 0));
  constexpr int kMessages = 200;
  constexpr std::size_t kLength = std::size_t{32} * 1024;
  for (int i = 0; i < kMessages; ++i) {
    refhost::send("test.large", {{"text", std::string(kLength, 'x')}});
  }
  std::int64_t last = 0;
  int in_a_row = 0;
  std::int64_t missing = 0;
  while (last < kMessages) {
    const Json line = next();
    if (line.contains("gap")) {
      ASSERT_EQ(line.at("gap").at("first"), last + 1) << line;
      const auto until = line.at("gap").at("last").get<std::int64_t>();
      ASSERT_GT(until, last);
      missing += until - last;
      last = until;
      in_a_row = 0;
    } else {
      ASSERT_EQ(line.at("number"), last + 1) << line.dump().substr(0, 100);
      ++last;
      ++in_a_row;
    }
  }
  EXPECT_GE(in_a_row, static_cast<int>(EventRing::kMostBytes / (kLength + 100))) << "all that the ring had";
  EXPECT_GT(missing, kMessages / 2) << "no more waits for a client than the ring and the socket hold";
}

TEST_F(EventsFollowing, AnotherRunOfTheHostIsSaidAndToldFromItsBeginning) {
  send(5);
  const std::string before = follow({}).at("run");
  start_anew();
  EXPECT_EQ(follow({{"after", 5}, {"run", before}}), begins(0, 0)) << "before anything has passed";
  EXPECT_EQ(next().dump(), kAnotherRun);
  send(7);
  EXPECT_EQ(lines_until(7).size(), 7U);
  follow({{"after", 5}, {"run", before}});
  EXPECT_EQ(next().dump(), kAnotherRun) << "a number that both have given";
  EXPECT_EQ(lines_until(7).size(), 7U);
  EXPECT_EQ(follow({{"after", 5}, {"run", ring_->run()}}), begins(5, 7));
  EXPECT_THAT(lines_until(7), ElementsAre("6", "7")) << "the client has seen that it is another one";
}

TEST_F(EventsFollowing, ANumberThatWasNotGivenYetIsAnotherRuns) {
  send(2);
  for (const std::int64_t after : {std::int64_t{3}, INT64_MAX}) {
    EXPECT_EQ(follow({{"after", after}}), begins(0, 2));
    EXPECT_EQ(next().dump(), kAnotherRun);
    EXPECT_THAT(lines_until(2), ElementsAre("1", "2"));
  }
  EXPECT_EQ(follow({{"after", 2}}), begins(2, 2)) << "the newest is one";
}

TEST_F(EventsFollowing, WhatIsNoNumberIsRefused) {
  EXPECT_EQ(follow({{"after", -1}}).at("error"), "\"after\" is a number from 0 on");
  for (const char* const wrong : {"\"1\"", "1.5", "1e3", "9223372036854775808", "1e400", "null", "[1]"}) {
    RawClient client(directory_.path());
    client.send(std::string(R"({"command":"events","after":)") + wrong + "}\n");
    const Json answer = Json::parse(client.receive());
    EXPECT_EQ(answer.at("ok"), false) << wrong;
    EXPECT_EQ(answer.at("status"), 2) << wrong;
  }
  EXPECT_THAT(follow({{"after", "1"}}).at("error").get<std::string>(), HasSubstr("is to be a whole number"));
  EXPECT_THAT(follow({{"run", 1}}).at("error").get<std::string>(), HasSubstr("is to be a text"));
}

}  // namespace
}  // namespace achost::test
