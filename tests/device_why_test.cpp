// achost why, asked by somebody beside a door that runs, and after its end.
#include <algorithm>
#include <thread>

#include "tests/device_fixture.h"

namespace device_test {

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::StartsWith;

class Why : public Device {
 protected:
  json why(const std::string& card, const std::vector<std::string>& more = {}) const {
    std::vector<std::string> words{"why", card, "--json"};
    words.insert(words.end(), more.begin(), more.end());
    return json::parse(output(words));
  }

  static std::vector<std::string> codes(const json& list) {
    std::vector<std::string> all;
    std::ranges::transform(list, std::back_inserter(all), [](const json& one) { return one.at("code"); });
    return all;
  }
  static std::string decisive(const json& answer) { return answer.at("reasons").at(0).at("code"); }
  static std::vector<std::string> codes_of_timeline(const json& answer) {
    std::vector<std::string> all;
    for (const auto& line : answer.at("timeline")) {
      std::ranges::copy(codes(line.at("reasons")), std::back_inserter(all));
    }
    return all;
  }
};

TEST_F(Why, ACardThatOpenedIsToldWithItsUserAndTheRelay) {
  start();
  output({"user", "put", "7", "--name", "Ana"});
  output({"card", "add", "1", "--user", "7"});
  output({"field", "add", kKnown});
  next_event("door_open");
  for (const bool is_running : {true, false}) {
    const auto answer = why("1");
    EXPECT_TRUE(answer.at("opened")) << answer;
    EXPECT_EQ(decisive(answer), "relay_on") << answer;
    EXPECT_THAT(answer.at("answer").get<std::string>(),
                AllOf(StartsWith("Card 1 of Ana (7) opened the door at "), HasSubstr("the relay was on from ")));
    EXPECT_EQ(decisive(why(kKnown)), "relay_on") << "asked by its EPC";
    if (is_running) {
      end();
    }
  }
}

TEST_F(Why, ACardThatIsReadAgainTooSoonIsToldSinceWhenAndUntil) {
  start({"--set", "read_interval=60000"});
  output({"field", "add", kUnknown});
  next_event("identification");
  const auto first = why("33");
  EXPECT_EQ(decisive(first), "nobodys_card") << first;
  EXPECT_THAT(first.at("answer").get<std::string>(), HasSubstr(" did not open the door at "));
  output({"field", "clear"});
  output({"field", "add", kUnknown});
  auto again = why("33", {"--at", "now"});
  for (int i = 0; i < 20 && decisive(again) != "same_card_too_soon"; ++i) {  // on a busy machine it is read later
    again = why("33", {"--at", "now"});
  }
  EXPECT_EQ(decisive(again), "same_card_too_soon") << again;
  EXPECT_THAT(
      again.at("answer").get<std::string>(),
      AllOf(HasSubstr(" and not announced: the same card was announced "), HasSubstr(" it would have been from ")));
}

TEST_F(Why, ABlockedUserAndAnInhibitedReaderAreTold) {
  start({"--set", "operation_mode=inhibit", "--set", "trigger_timeout=0"});
  output({"card", "add", "1", "--user", "7"});
  output({"user", "block", "7"});
  output({"field", "add", kKnown});
  next_event("identification");
  EXPECT_EQ(decisive(why("1")), "user_blocked");
  output({"gpio", "set", "1", "1"});
  output({"field", "clear"});
  output({"field", "add", kUnknown});
  const auto answer = why("33");
  EXPECT_EQ(decisive(answer), "inhibit_active") << answer;
}

TEST_F(Why, ACardThatWasNeverThereIsToldAsThatAndASilentReaderToo) {
  start();
  output({"field", "add", kUnknown});
  next_event("identification");
  EXPECT_EQ(codes(why("44").at("reasons")).front(), "never_in_field");
  output({"field", "fault", "silence", "1"});
  next_event("reader", [](const json& event) { return event.at("state") == "silent"; });
  const auto answer = why("44", {"--at", "now"});
  EXPECT_THAT(codes(answer.at("reasons")), testing::ElementsAre("reader_silent", "never_in_field")) << answer;
}

TEST_F(Why, CardsAreMaskedUnlessATerminalJsonOrAnOptionAsks) {
  start();
  constexpr const char* kEpc = "E2801170000000000012ABCD";
  EXPECT_THAT(output({"why", "1234567"}), StartsWith("Card ***4567 was not read "));
  EXPECT_THAT(output({"why", kEpc}), StartsWith("The tag ********************ABCD was not read "));
  output({"field", "add", kEpc});
  while (output({"why", "--now"}).starts_with("no card")) {
  }
  EXPECT_THAT(output({"why", "--now"}), AllOf(HasSubstr("****"), HasSubstr("(EPC ********************ABCD)")));
  EXPECT_THAT(output({"why", "--now", "--show-cards"}), HasSubstr(kEpc));
  EXPECT_THAT(output({"why", "1234567", "--show-cards"}), StartsWith("Card 1234567 was not read "));
  EXPECT_THAT(output({"why", "1234567", "--json"}), HasSubstr("Card 1234567 was not read "));
  Achost terminal({"why", "1234567", "--state", state()}, achost::test::Output::terminal);
  EXPECT_THAT(terminal.wait().out, StartsWith("Card 1234567 was not read "));
}

TEST_F(Why, NowTellsWhatLiesInTheField) {
  start({"--set", "read_interval=60000"});
  EXPECT_EQ(output({"why", "--now"}), "no card lies in the field\n");
  output({"field", "add", kUnknown});
  next_event("identification");
  EXPECT_THAT(output({"why", "--now", "--show-cards"}),
              AllOf(HasSubstr(std::string("card 33 (EPC ") + kUnknown + ")"), HasSubstr("was announced")));
}

TEST_F(Why, WhatIsNoCardOrTimeIsRefusedWithTheWayOut) {
  start();
  for (const auto& [words, error] : std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{"why"}, "whose card? give a card or an EPC, or --now for what lies in the field"},
           {{"why", "ana"}, "\"ana\" is no card: a number such as 33 or 0x21"},
           {{"why", "33", "--last", "soon"}, "\"soon\" is no span of time: such as 30s, 10m, 2h or 1h30min"}}) {
    const auto result = command(words);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "achost: " + error + "\n");
  }
}

TEST_F(Why, TheSecondOpinionAgreesWithThePlugInInAllModes) {
  start({"--set", "read_interval=300", "--set", "read_interval_diff_tags=120", "--set", "trigger_timeout=200"});
  for (const char* const tag : {"21", "22", "23", "24"}) {
    output({"field", "add", std::string("E200000000000000000000") + tag, "p=0.8"});
  }
  for (const std::string mode : {"continuous", "trigger", "inhibit"}) {
    output({"config", "set", "operation_mode", mode});
    for (int i = 0; i < 4; ++i) {
      for (const auto& [level, mode_without_cards] : {std::pair("1", "inhibit"), {"0", "trigger"}}) {
        output({"gpio", "set", "1", level});
        if (mode != mode_without_cards) {
          next_event("identification");
        }
      }
    }
  }
  const auto opinion = status().at("second_opinion");
  EXPECT_GT(opinion.at("readings"), 100) << opinion;
  EXPECT_EQ(opinion.at("disagreements"), 0) << output({"journal", "--kind", "disagreement"});
  EXPECT_EQ(opinion.at("left_out"), 0) << opinion;
}

}  // namespace device_test
