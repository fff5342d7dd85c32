#include "door/run/figures.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace achost::test {
namespace {

using Json = nlohmann::ordered_json;
using namespace std::chrono_literals;

const Figures::Time kStart{1h};

class FiguresTest : public testing::Test {
 protected:
  static constexpr int kDoorLine = 18;

  void announce(std::int64_t card, std::chrono::nanoseconds at) {
    ac::Message message("identifier_new_card");
    message.add_int64("value", card);
    figures_.see(message, kStart + at);
  }
  void decide(std::int64_t card, const std::string& outcome, std::chrono::nanoseconds at) {
    ac::Message message("identifier_decision");
    message.add_int64("value", card);
    message.add_string("outcome", outcome);
    figures_.see(message, kStart + at);
  }
  void ask_to_open(int reason, std::chrono::nanoseconds at) {
    ac::Message message("actuator_open_door");
    message.add_int("id", 1);
    message.add_int("reason", reason);
    figures_.see(message, kStart + at);
  }
  void line(const char* type, int line, int value, std::chrono::nanoseconds at) {
    ac::Message message(type);
    message.add_int("gpio", line);
    message.add_int("value", value);
    figures_.see(message, kStart + at);
  }
  void poll(line::Outcome outcome, std::chrono::nanoseconds asked, std::chrono::nanoseconds last_byte,
            std::size_t tags = 0) {
    figures_.saw({.question = {},
                  .code = line::Code::inventory,
                  .bytes = {},
                  .answer = {.outcome = outcome, .flaw = {}, .tags = std::vector<line::TagPlace>(tags)},
                  .asked = kStart + asked,
                  .last_byte = kStart + last_byte});
  }

  // How many there were, and how long they took together, in seconds.
  std::pair<int, double> stage(const char* name) const {
    const Json stage = figures_.json().at("stages").at(name);
    return {stage.at("count"), stage.at("sum_s")};
  }

  Figures figures_{[] { return kDoorLine; }};
};

using Taken = std::pair<int, double>;

TEST(HistogramTest, ADurationIsInTheBucketWhoseBoundIsTheFirstThatIsNoLess) {
  Histogram histogram;
  histogram.add(100us);
  histogram.add(100us + 1ns);
  histogram.add(250us);
  histogram.add(2500ms);
  histogram.add(2501ms);
  const auto counts = histogram.counts();
  EXPECT_EQ(counts.at(0), 1U);
  EXPECT_EQ(counts.at(1), 2U);
  EXPECT_EQ(counts.at(Histogram::kBounds.size() - 1), 1U);
  EXPECT_EQ(counts.at(Histogram::kBounds.size()), 1U);
  EXPECT_EQ(histogram.sum(), 100us + 100us + 1ns + 250us + 2500ms + 2501ms);
}

TEST_F(FiguresTest, ABucketHasThoseBeforeItAndTheLastAll) {
  poll(line::Outcome::empty, 0ms, 1ms);
  poll(line::Outcome::empty, 10ms, 14ms);
  poll(line::Outcome::empty, 20s, 29s);
  const Json buckets = figures_.json().at("stages").at("line").at("buckets");
  std::vector<int> counts;
  for (const auto& bucket : buckets) {
    counts.push_back(bucket.at("count"));
  }
  EXPECT_EQ(counts, (std::vector<int>{0, 0, 0, 1, 1, 2, 2, 2, 2, 2, 2, 2, 2, 2, 3}));
  EXPECT_EQ(buckets.at(3).at("le_s"), 0.001);
  EXPECT_FALSE(buckets.back().contains("le_s"));
}

TEST_F(FiguresTest, PollsAreCountedByOutcomeAndTimedWhereThereIsAnAnswer) {
  poll(line::Outcome::empty, 0ms, 2ms);
  poll(line::Outcome::tags, 10ms, 13ms, 1);
  poll(line::Outcome::silence, 20ms, 20ms);
  figures_.saw({.question = {},
                .code = line::Code::get_power,
                .bytes = {},
                .answer = {.outcome = line::Outcome::answered, .flaw = {}, .tags = {}},
                .asked = kStart,
                .last_byte = kStart + 1s});
  const Json polls = figures_.json().at("polls");
  EXPECT_EQ(
      polls,
      Json::parse(R"({"tags":1,"empty":1,"answered":0,"silence":1,"out_of_step":0,"echo":0,"bad":0,"endless":0})"));
  EXPECT_EQ(stage("line"), Taken(2, 0.005));
}

TEST_F(FiguresTest, AnAnnouncementIsTimedFromTheAnswerBeforeItHoweverLateThatIsTold) {
  announce(33, 15ms);
  poll(line::Outcome::tags, 10ms, 13ms, 1);
  EXPECT_EQ(stage("plug_in"), Taken(1, 0.002));
  poll(line::Outcome::tags, 20ms, 23ms, 1);
  EXPECT_EQ(stage("plug_in"), Taken(1, 0.002)) << "it is counted once";
}

TEST_F(FiguresTest, AnAnnouncementThatIsLateIsTimedFromTheAnswerThatWasToldBefore) {
  poll(line::Outcome::tags, 10ms, 13ms, 1);
  announce(33, 16ms);
  poll(line::Outcome::empty, 20ms, 23ms);
  EXPECT_EQ(stage("plug_in").first, 0) << "it may still be of an answer that is to be told";
  poll(line::Outcome::tags, 30ms, 33ms, 1);
  EXPECT_EQ(stage("plug_in"), Taken(1, 0.003));
}

TEST_F(FiguresTest, ADecisionIsTimedFromTheLatestAnnouncementOfItsCard) {
  announce(33, 0ms);
  announce(34, 1ms);
  announce(33, 60s);
  decide(33, "still_here", 60s + 2ms);
  EXPECT_EQ(stage("decision"), Taken(1, 0.002));
  decide(34, "unknown", 60s + 1ms);
  EXPECT_EQ(stage("decision"), Taken(2, 60.002));
  decide(33, "opens", 61s);
  EXPECT_EQ(stage("decision").first, 2) << "the earlier ones were of the same decision";
}

TEST_F(FiguresTest, IdentificationsAreCountedByOutcomeAndThoseOfANewNameAsOther) {
  decide(33, "opens", 0ms);
  decide(33, "opens", 0ms);
  decide(33, "too_soon_after_entry", 0ms);
  decide(33, "a new one", 0ms);
  const Json identifications = figures_.json().at("identifications");
  EXPECT_EQ(identifications.at("opens"), 2);
  EXPECT_EQ(identifications.at("too_soon_after_entry"), 1);
  EXPECT_EQ(identifications.at("other"), 1);
  EXPECT_EQ(identifications.at("unknown"), 0);
}

TEST_F(FiguresTest, TheRelayIsTimedFromTheDecisionToItsLine) {
  ask_to_open(0, 0ms);
  line("gpio_set_value", kDoorLine, 1, 1ms);
  line("gpio_notified", 3, 1, 1ms);
  line("gpio_notified", kDoorLine, 1, 2ms);
  EXPECT_EQ(stage("relay"), Taken(1, 0.002));
  line("gpio_set_value", kDoorLine, 0, 1s);
  line("gpio_notified", kDoorLine, 0, 1s);
  EXPECT_EQ(stage("relay").first, 1);
}

TEST_F(FiguresTest, ARelayThatACardDoesNotMoveIsNotTimed) {
  ask_to_open(1, 0ms);  // who wants to leave
  line("gpio_set_value", kDoorLine, 1, 1ms);
  line("gpio_notified", kDoorLine, 1, 2ms);
  ask_to_open(0, 10ms);  // and a card meanwhile: the door stays open
  line("gpio_set_value", kDoorLine, 0, 1s);
  line("gpio_notified", kDoorLine, 0, 1s);
  ask_to_open(1, 2s);
  line("gpio_set_value", kDoorLine, 1, 2s);
  line("gpio_notified", kDoorLine, 1, 2s);
  EXPECT_EQ(stage("relay").first, 0);
}

}  // namespace
}  // namespace achost::test
