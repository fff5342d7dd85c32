// achost why, asked of a recording alone: the same answers as of the door that made it.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "door/base/time_of.h"
#include "tests/device_fixture.h"

namespace device_test {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

class WhyRecording : public Device {
 protected:
  std::string file() const { return files_.path() / "door.uhfrec"; }

  void save() { output({"recording", "save", file()}); }

  // Nobody says where the state is, and there is none.
  Result ask_recording(std::vector<std::string> words) const {
    words.insert(words.begin(), "why");
    words.insert(words.end(), {"--recording", file()});
    return achost::test::achost(std::move(words));
  }
  json why_recording(const std::string& card, const std::vector<std::string>& more = {}) const {
    std::vector<std::string> words{card, "--json"};
    words.insert(words.end(), more.begin(), more.end());
    const auto result = ask_recording(words);
    EXPECT_EQ(result.status, 0) << result.err;
    return result.status == 0 ? json::parse(result.out) : json();
  }
  json why(const std::string& card, const std::vector<std::string>& more = {}) const {
    std::vector<std::string> words{"why", card, "--json"};
    words.insert(words.end(), more.begin(), more.end());
    return json::parse(output(words));
  }

  // Until the card has left, as far as the door knows.
  void wait_until_gone(const std::string& card) const {
    while (output({"why", "--now"}).find("card " + card + " ") != std::string::npos) {
    }
  }

  // The lines of the recording for which that is true.
  template <typename Keep>
  void filter(const Keep& keep) const {
    std::istringstream lines(text());
    std::ofstream out(file());
    for (std::string line; std::getline(lines, line);) {
      if (keep(line)) {
        out << line << "\n";
      }
    }
  }
  std::string text() const {
    std::ifstream in(file());
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }

  static constexpr const char* kNoTime = ", for which there was no time";

  static std::string codes(const json& list) {
    std::string all;
    for (const auto& one : list) {
      all += one.at("code").get<std::string>() + " ";
    }
    return all;
  }

  // A time on the clock differs by the little that a recording's beginning is told too early or too late. Of a machine
  // that was too loaded to note all that happened, the recording says so, and need not tell the same.
  static void expect_same(const json& recorded, const json& door, const std::string& card) {
    if (recorded.at("recording").at("unknown").dump().find(kNoTime) != std::string::npos) {
      return;
    }
    EXPECT_EQ(codes(recorded.at("reasons")), codes(door.at("reasons"))) << card << "\n" << recorded << "\n" << door;
    EXPECT_EQ(recorded.at("opened"), door.at("opened")) << card;
    const auto lines = recorded.at("timeline");
    const auto expected = without_start(door.at("timeline"));
    ASSERT_EQ(lines.size(), expected.size()) << card << "\n" << recorded << "\n" << door;
    for (std::size_t i = 0; i < lines.size(); ++i) {
      EXPECT_EQ(codes(lines[i].at("reasons")), codes(expected[i].at("reasons"))) << card << ", line " << i;
      const auto apart = achost::time_of(lines[i].at("time")) - achost::time_of(expected[i].at("time"));
      EXPECT_LE(std::abs(apart), 2) << card << ", line " << i << ": " << lines[i] << " " << expected[i];
    }
  }

 private:
  // A recording knows nothing of the daemon's start.
  static json without_start(const json& timeline) {
    json lines = json::array();
    for (const auto& line : timeline) {
      if (line.at("text") != "the door daemon begins") {
        lines.push_back(line);
      }
    }
    return lines;
  }

  refhost::test::TemporaryDirectory files_;
};

TEST_F(WhyRecording, GivesTheSameReasonsAndTimesAsTheDoorThatMadeIt) {
  start({"--set", "read_interval=60000", "--set", "operation_mode=inhibit", "--set", "trigger_timeout=300"});
  output({"user", "put", "7", "--name", "Ana Maria"});
  output({"card", "add", "1", "--user", "7"});
  output({"card", "add", "34", "--user", "8"});
  output({"user", "block", "8"});
  const auto is_of = [](int card) { return [card](const json& event) { return event.at("card") == card; }; };
  output({"field", "add", kKnown});  // somebody's
  next_event("identification", is_of(1));
  output({"field", "add", kUnknown});  // nobody's
  next_event("identification", is_of(33));
  output({"field", "add", "E28011700000020A00000022"});  // a blocked user's
  next_event("identification", is_of(34));
  output({"field", "clear"});
  output({"gpio", "set", "1", "1"});
  output({"field", "add", "E28011700000020A00000023"});  // inhibited, then too soon after it
  output({"why", "--now"});
  output({"gpio", "set", "1", "0"});
  next_event("identification", is_of(35));
  output({"field", "clear"});
  output({"config", "set", "operation_mode=continuous", "read_interval=50000"});
  output({"field", "add", kUnknown});  // the same card too soon
  output({"why", "--now"});
  output({"field", "clear"});
  for (const char* const card : {"1", "33", "34", "35"}) {
    wait_until_gone(card);
  }
  output({"config", "set", "identification_bits=16"});
  output({"field", "add", "E28011700000020A00000924"});  // another value than before
  next_event("identification", is_of(0x924));
  output({"field", "clear"});
  wait_until_gone("2340");
  const auto cards = {"1", "33", "34", "35", "44", "2340", kUnknown};
  std::map<std::string, json> door;
  for (const std::string card : cards) {
    door[card] = why(card);
  }
  EXPECT_EQ(door["1"].at("reasons").at(0).at("code"), "relay_on");
  EXPECT_EQ(door["33"].at("reasons").at(0).at("code"), "nobodys_card");
  EXPECT_EQ(door["34"].at("reasons").at(0).at("code"), "user_blocked");
  EXPECT_THAT(door["35"].dump(), AllOf(HasSubstr("inhibit_active"), HasSubstr("dead_time")));
  EXPECT_THAT(door["33"].dump(), HasSubstr("same_card_too_soon"));
  save();
  for (const std::string card : cards) {
    const auto recorded = why_recording(card);
    expect_same(recorded, door[card], card);
    EXPECT_THAT(recorded.at("recording").at("unknown"), Each(HasSubstr(kNoTime))) << recorded;
  }
  for (const auto& line : door["33"].at("timeline")) {
    const auto at = line.at("time").get<std::string>();
    expect_same(why_recording("33", {"--at", at}), why("33", {"--at", at}), "33 at " + at);
  }
  EXPECT_THAT(why_recording("1").at("answer").get<std::string>(), HasSubstr("of Ana Maria (7) opened the door at "));
}

TEST_F(WhyRecording, GivesTheSameRulesOfUsersAndVisits) {
  std::filesystem::create_directory(state());
  const auto table = state() + "-schedules";
  std::ofstream(table) << "name,days,from,to\nnext to never,holiday,00:00,24:00\nAll Souls,2200-11-02,,\n";
  output({"schedule", "import", table});
  start({"--set", "read_interval=1000", "--set", "host.away_time=600000"});
  output({"card", "add", "1", "--user", "7"});
  output({"user", "put", "8", "--name", "Ben next", "--schedule", "next to never"});
  output({"card", "add", "34", "--user", "8"});
  output({"user", "put", "9", "--pause", "1h"});
  output({"card", "add", "35", "--user", "9"});
  output({"card", "add", "36", "--user", "9"});
  output({"field", "add", kKnown});
  next_event("identification");
  EXPECT_EQ(next_event("identification").at("outcome"), "still_here");
  for (const auto& [tag, outcome] : {std::pair("E28011700000020A00000022", "outside_schedule"),
                                     {"E28011700000020A00000023", "opens"},
                                     {"E28011700000020A00000024", "too_soon_after_entry"}}) {
    output({"field", "clear"});
    output({"field", "add", tag});
    const auto card = std::stoul(std::string(tag).substr(16), nullptr, 16);
    EXPECT_EQ(next_event("identification", [&](const json& event) { return event.at("card") == card; }).at("outcome"),
              outcome);
  }
  output({"field", "clear"});
  const auto cards = {"1", "34", "36"};
  std::map<std::string, json> door;
  for (const std::string card : cards) {
    wait_until_gone(card);
    door[card] = why(card);
  }
  EXPECT_EQ(door["1"].at("reasons").at(0).at("code"), "still_here");
  EXPECT_THAT(door["34"].at("answer"), HasSubstr("schedule next to never of its user Ben next (8) was shut"));
  EXPECT_EQ(door["36"].at("reasons").at(0).at("code"), "too_soon_after_entry");
  save();
  for (const std::string card : cards) {
    const auto recorded = why_recording(card);
    expect_same(recorded, door[card], card);
    const auto& reasons = recorded.at("reasons");
    EXPECT_EQ(reasons.at(0), door[card].at("reasons").at(0)) << "with the facts";
  }
}

TEST_F(WhyRecording, WhatItCannotAnswerIsRefusedInOneLineWithTheWayOut) {
  start();
  output({"field", "add", kUnknown});
  next_event("identification");
  save();
  const auto refused = [&](const std::vector<std::string>& words) {
    const auto result = ask_recording(words);
    EXPECT_EQ(result.status, 2) << result.out;
    EXPECT_EQ(std::ranges::count(result.err, '\n'), 1) << result.err;
    return result.err;
  };
  EXPECT_THAT(refused({"33", "--now"}), HasSubstr("--now asks a host that runs; a recording is asked for a card"));
  EXPECT_THAT(refused({}), HasSubstr("whose card? give a card or an EPC"));
  EXPECT_THAT(refused({"33", "--at", "2020-01-01"}),
              AllOf(HasSubstr(file() + " knows nothing of 2020-01-01T00:00:00.000"), HasSubstr(": it goes from ")));
  const auto whole = text();
  std::ofstream(file()) << whole.substr(0, whole.size() - 1);
  const auto lines = std::to_string(std::ranges::count(whole, '\n'));
  EXPECT_THAT(refused({"33"}), HasSubstr(file() + ":" + lines + ": the file is cut off within this line"));
  std::ofstream(file()) << "root:x:0:0\n";
  EXPECT_THAT(refused({"33"}), HasSubstr(file() + " is no recording"));
  std::filesystem::remove(file());
  EXPECT_THAT(refused({"33"}), HasSubstr(file() + " cannot be read: No such file or directory"));
  std::filesystem::create_directory(file());
  EXPECT_THAT(refused({"33"}), HasSubstr(file() + " cannot be read: Is a directory"));
  std::filesystem::remove(file());
  std::ofstream(file()).close();
  std::filesystem::resize_file(file(), (256U << 20U) + 1);
  EXPECT_THAT(refused({"33"}), HasSubstr(file() + " has more than 256 MiB: give a part of it"));
}

// As an older host makes it, or uhfctl record.
TEST_F(WhyRecording, OneWithoutSettingsTellsWhatWasReadAndSaysWhatIsNotKnown) {
  start();
  output({"field", "add", kUnknown});
  next_event("identification");
  output({"field", "clear"});
  wait_until_gone("33");
  const auto polls = [](const json& answer) { return answer.at("timeline").at(0).at("text").get<std::string>(); };
  save();
  filter([](const std::string& line) { return !line.starts_with("# ") || line.starts_with("# uhf"); });
  const auto answer = why_recording(kUnknown);
  EXPECT_EQ(codes(answer.at("reasons")), "settings_unknown ");
  EXPECT_THAT(polls(answer), AllOf(HasSubstr("RSSI 200; announced or not"), Not(HasSubstr("not announced"))));
  EXPECT_THAT(answer.at("recording").at("unknown"), SizeIs(2)) << answer;
  const auto text = ask_recording({kUnknown}).out;
  EXPECT_THAT(text,
              HasSubstr("\nNot known from the recording:\n  when it was made: the times count from its beginning\n"));
  const auto card = ask_recording({"33"});
  EXPECT_EQ(card.status, 2);
  EXPECT_THAT(card.err, HasSubstr(std::string("ask for an EPC; it has ") + kUnknown));
}

}  // namespace device_test
