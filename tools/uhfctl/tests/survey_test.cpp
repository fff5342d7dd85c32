// Stepping through powers, and what comes of it.
#include "survey.h"

#include <signal.h>

#include "run.h"

namespace uhfctl::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

class SurveyOf : public WithReader {
 protected:
  SurveyOf() {
    reader.field().clear();
    reader.field().add({.epc = {0xE2, 0x00, 0x00, 0x01}, .rssi = 180, .least_power = 2000});
    reader.field().add({.epc = {0x30, 0x08, 0x33, 0xB2}, .rssi = 90, .least_power = 2400});
  }
};

TEST_F(SurveyOf, RecommendsTheLeastPowerThatReadsTheTagWell) {
  const auto [status, out, err] =
      uhfctl({"survey", "--power", "1800:2600:200", "--seconds", "0.2", "--tag", "300833b2", "--out", file("s.html")});
  EXPECT_EQ(status, 0) << err;
  EXPECT_THAT(out, HasSubstr("Recommended for 300833B2: transmit_power 2400, 24.00 dBm"));
  const auto figures = nlohmann::json::parse(content_of(file("s.json")));
  EXPECT_EQ(figures["transmit_power"], 2400);
  ASSERT_EQ(figures["steps"].size(), 5U);
  EXPECT_EQ(figures["steps"][0]["tags"].size(), 0U);
  EXPECT_EQ(figures["steps"][1]["tags"].size(), 1U);
  EXPECT_EQ(figures["steps"][4]["tags"].size(), 2U);
  EXPECT_THAT(content_of(file("s.csv")), HasSubstr("\n2000,E2000001,"));
  EXPECT_THAT(content_of(file("s.csv")), Not(HasSubstr("\n2000,300833B2,")));
}

TEST_F(SurveyOf, LeavesThePowerAsItWas) {
  ASSERT_EQ(uhfctl({"power", "set", "2222"}).status, 0);
  const auto [status, out, err] =
      uhfctl({"survey", "--power", "2000:2100:100", "--seconds", "0.1", "--out", file("s.html")});
  EXPECT_EQ(reader.state().power, 2222);
  EXPECT_THAT(err, HasSubstr("the power is 22.22 dBm again"));
}

TEST_F(SurveyOf, LeavesThePowerAsItWasWhenInterrupted) {
  uhfsim::testing::Process process(UHFCTL, {"--port", reader.path(), "survey", "--power", "2000:3000:100", "--seconds",
                                            "60", "--out", file("s.html")});
  while (reader.state().power != 2000 || reader.counters().notices == 0) {
    usleep(1000);
  }
  process.signal(SIGINT);
  EXPECT_EQ(process.wait(), 0);
  EXPECT_EQ(reader.state().power, 2600);
  EXPECT_THAT(process.read_all_errors(), HasSubstr("interrupted after 1 of 11 steps"));
  const auto figures = nlohmann::json::parse(content_of(file("s.json")));
  EXPECT_EQ(figures["steps"].size(), 1U) << "what was found is kept";
  EXPECT_EQ(figures["cut_short"], true);
  EXPECT_EQ(figures["planned_steps"], 11);
  EXPECT_THAT(content_of(file("s.html")), HasSubstr("Cut short after 1 of 11 steps"));
}

TEST_F(SurveyOf, OverwritesNoEarlierOneUnasked) {
  const std::vector<std::string> again{"survey", "--power", "2000:2200:200", "--seconds",
                                       "0.05",   "--out",   file("s.html")};
  std::ofstream(file("s.csv")) << "mine";
  const auto refused = uhfctl(again);
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.err, "uhfctl: there already: " + file("s.csv") + "; give another --out, or --overwrite\n");
  EXPECT_EQ(content_of(file("s.csv")), "mine");
  EXPECT_EQ(reader.counters().commands, 0U) << "said before it begins";
  auto forced = again;
  forced.emplace_back("--overwrite");
  EXPECT_EQ(uhfctl(forced).status, 0);
  EXPECT_THAT(content_of(file("s.csv")), HasSubstr("power,epc"));
}

TEST_F(SurveyOf, SaysWhenTheLeastPowerWasEnough) {
  const auto enough =
      uhfctl({"survey", "--power", "2400:2600:100", "--seconds", "0.1", "--tag", "E2000001", "--out", file("s.html")});
  EXPECT_THAT(enough.out, HasSubstr("The least power that was surveyed was enough: survey lesser ones, too."));
  EXPECT_THAT(content_of(file("s.html")), HasSubstr("It is the least that was surveyed"));
  const auto more =
      uhfctl({"survey", "--power", "1900:2600:100", "--seconds", "0.1", "--tag", "E2000001", "--out", file("t.html")});
  EXPECT_THAT(more.out, HasSubstr("transmit_power 2000"));
  EXPECT_THAT(more.out, Not(HasSubstr("was enough")));
}

TEST_F(SurveyOf, ANoisyLineIsSaid) {
  reader.faults().set("corrupt-checksum", 0.3);
  std::string seen;
  // Now and then a question for the power is among the damaged ones, thrice, or the answer to a new one.
  for (int attempt = 0; attempt < 20 && seen.find("noisy line: ") == seen.npos; ++attempt) {
    seen += uhfctl({"--timeout", "100", "survey", "--power", "2400:2600:200", "--seconds", "0.2", "--overwrite",
                    "--out", file("s.html")})
                .err;
  }
  EXPECT_THAT(seen, HasSubstr("wrong checksum: shorten the cable"));
  EXPECT_THAT(content_of(file("s.html")), HasSubstr("Noisy line: "));
}

TEST_F(SurveyOf, LeavesThePowerAsItWasWhenItsTerminalIsClosed) {
  uhfsim::testing::Process process(UHFCTL, {"--port", reader.path(), "survey", "--power", "2000:3000:100", "--seconds",
                                            "60", "--out", file("s.html")});
  while (reader.state().power != 2000 || reader.counters().notices == 0) {
    usleep(1000);
  }
  process.signal(SIGHUP);
  process.wait();
  EXPECT_EQ(reader.state().power, 2600);
}

TEST_F(SurveyOf, TriesToSetThePowerBackWhenTheReaderIsGone) {
  uhfsim::testing::Process process(UHFCTL, {"--port", reader.path(), "--timeout", "100", "survey", "--power",
                                            "2000:3000:100", "--seconds", "0.2", "--out", file("s.html")});
  while (reader.state().power != 2100) {
    usleep(1000);
  }
  reader.faults().set("silence", 1);
  EXPECT_EQ(process.wait(), 4);
  EXPECT_GE(nlohmann::json::parse(content_of(file("s.json")))["steps"].size(), 1U) << "what was found is kept";
  EXPECT_THAT(process.read_all_errors(), HasSubstr("`uhfctl power set 2600` does it"));
}

TEST_F(SurveyOf, ATagThatIsNotThereGetsNoRecommendation) {
  const auto out =
      uhfctl({"survey", "--power", "2000:2000:100", "--seconds", "0.1", "--tag", "AAAA", "--out", file("s.html")}).out;
  EXPECT_THAT(out, HasSubstr("No recommendation: AAAA was not read"));
  EXPECT_THAT(content_of(file("s.html")), HasSubstr("No recommendation"));
}

TEST_F(SurveyOf, AReportThatCannotBeWrittenIsSaidBeforeItBegins) {
  const auto [status, out, err] = uhfctl({"survey", "--power", "2000:2600:100", "--out", "/nowhere/s.html"});
  EXPECT_EQ(status, 1);
  EXPECT_THAT(err, HasSubstr("/nowhere/s.html cannot be written"));
  EXPECT_EQ(reader.counters().commands, 0U);
}

TEST_F(SurveyOf, MorePowerThanTheRegionAllowsIsRefusedBeforeItBegins) {
  const auto [status, out, err] = uhfctl({"survey", "--power", "20dBm:31dBm:1dBm", "--out", file("s.html")});
  EXPECT_EQ(status, 2);
  EXPECT_THAT(err, HasSubstr("31.00 dBm is more than the 30.00 dBm that BRAZIL allows"));
  EXPECT_EQ(reader.counters().commands, 0U);
}

TEST(ParsePowers, TakesFromToAndStep) {
  EXPECT_THAT(parse_powers("1000:1400:200"), ElementsAre(1000, 1200, 1400));
  EXPECT_THAT(parse_powers("1000:1399:200"), ElementsAre(1000, 1200));
  EXPECT_THAT(parse_powers("10dBm:1400:2dBm"), ElementsAre(1000, 1200, 1400));
  for (const char* wrong : {"", "1000", "1000:2000", "2000:1000:100", "1000:2000:0", "1000:70000:100", "1:2:3:4",
                            "a:b:c", "-1:2:1", "1:2:3x", "15:30:1", "1000:2000:25"}) {
    EXPECT_THROW(parse_powers(wrong), std::runtime_error) << wrong;
  }
}

// A survey with so many readings of one tag at each power, in one second.
Survey survey_of(const std::vector<std::pair<int, int>>& readings) {
  Survey survey{.port = "/dev/<p>", .time = "now", .steps = {}};
  for (const auto& [power, times] : readings) {
    SurveyStep step{.power = power, .seconds = 1, .polls = 100, .tags = Tags()};
    for (int i = 0; i < times; ++i) {
      Poll poll;
      poll.tags.push_back({200, 0x0800, {0xAB, 0xCD}, 0});
      step.tags.add(poll, Clock::time_point());
    }
    survey.steps.push_back(std::move(step));
  }
  return survey;
}

TEST(RecommendedPower, IsOfPollsAndNotOfTime) {
  auto survey = survey_of({{1000, 100}, {2000, 100}});
  survey.steps[1].seconds = 0.1;  // as when other tags have come to share the line at the first
  EXPECT_EQ(recommended_power(survey, "ABCD"), 1000);
}

TEST(RecommendedPower, IsTheLeastAtNineTenthsOfTheBest) {
  EXPECT_EQ(recommended_power(survey_of({{1000, 0}, {1500, 89}, {2000, 90}, {2500, 100}}), "ABCD"), 2000);
  EXPECT_EQ(recommended_power(survey_of({{1000, 0}, {1500, 0}}), "ABCD"), std::nullopt);
}

TEST(RecommendedPower, TheLeastOfSeveralMayBeMoreThanIsNeeded) {
  const auto survey = survey_of({{1000, 100}, {2000, 100}});
  EXPECT_TRUE(least_was_enough(survey, 1000));
  EXPECT_FALSE(least_was_enough(survey, 2000));
  EXPECT_FALSE(least_was_enough(survey, std::nullopt));
  EXPECT_FALSE(least_was_enough(survey_of({{1000, 100}}), 1000)) << "one power is no survey";
}

TEST(Report, PlotsTheSharesThatItRecommendsBy) {
  const auto html = report_of(survey_of({{1000, 25}, {2000, 50}}), "ABCD");
  EXPECT_THAT(html, HasSubstr("Share of the polls that read it"));
  EXPECT_THAT(html, HasSubstr("<title>ABCD at 10.00 dBm: 25.0</title>"));
  EXPECT_THAT(html, HasSubstr("<title>ABCD at 20.00 dBm: 50.0</title>"));
}

TEST(Share, IsOfPollsAlsoWhenAPollReportsATagTwice) {
  Tags tags;
  Poll poll;
  poll.tags = {{200, 0x0800, {0xAB, 0xCD}, 0}, {200, 0x0800, {0xAB, 0xCD}, 0}};
  tags.add(poll, Clock::time_point());
  const SurveyStep step{.power = 1000, .seconds = 1, .polls = 1, .tags = tags};
  EXPECT_EQ(step.share_of("ABCD"), 1);
}

TEST(Report, EscapesWhatItNames) {
  const auto html = report_of(survey_of({{1000, 5}}), "ABCD");
  EXPECT_THAT(html, HasSubstr("/dev/&lt;p&gt;"));
  EXPECT_THAT(html, Not(HasSubstr("<p>\"")));
  EXPECT_THAT(html, Not(HasSubstr("src="))) << "needs nothing but itself";
}

}  // namespace
}  // namespace uhfctl::testing
