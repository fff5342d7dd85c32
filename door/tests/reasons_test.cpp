// The closed set of reasons, and its publication.
#include "door/why/reasons.h"

#include <gmock/gmock.h>

#include <fstream>
#include <set>

#include "door/why/suppression.h"

using namespace achost::why;
using std::chrono::milliseconds;
using testing::ElementsAreArray;

namespace {

constexpr std::array kStages{"the line", "the rules on readings", "the door"};

std::vector<std::string> published_rows() {
  std::ifstream document(REASONS_DOCUMENT);
  std::vector<std::string> rows;
  for (std::string line; std::getline(document, line);) {
    if (line.starts_with("| `")) {
      rows.push_back(line);
    }
  }
  return rows;
}

std::vector<std::string> rows_of_table() {
  std::vector<std::string> rows;
  for (const auto& row : kReasons) {
    rows.push_back("| `" + std::string(row.name) + "` | " + kStages.at(static_cast<std::size_t>(row.stage)) + " | " +
                   std::string(row.sentence) + " |");
  }
  return rows;
}

}  // namespace

TEST(ReasonTable, IsTheOneThatIsPublished) {
  EXPECT_THAT(published_rows(), ElementsAreArray(rows_of_table())) << [] {
    std::string text = "docs/reasons.md should have:\n";
    for (const auto& row : rows_of_table()) {
      text += row + '\n';
    }
    return text;
  }();
}

TEST(ReasonTable, HasANameForProgramsAndOneForEach) {
  std::set<std::string_view> names;
  for (const auto& [reason, name, stage, sentence] : kReasons) {
    EXPECT_EQ(name.find_first_not_of("abcdefghijklmnopqrstuvwxyz_"), name.npos) << name;
    EXPECT_TRUE(name.find("__") == name.npos && !name.starts_with('_') && !name.ends_with('_')) << name;
    EXPECT_TRUE(names.insert(name).second) << name;
    EXPECT_EQ(reason_of(name), reason);
  }
  EXPECT_EQ(reason_of("no_such_reason"), std::nullopt);
}

TEST(ReasonTable, AsksForFactsThatThereAre) {
  const std::set<std::string_view> facts{"since", "until", "ago", "value", "card", "user", "text", "index", "count"};
  for (const auto& row : kReasons) {
    for (auto open = row.sentence.find('{'); open != row.sentence.npos; open = row.sentence.find('{', open + 1)) {
      const auto fact = row.sentence.substr(open + 1, row.sentence.find('}', open) - open - 1);
      EXPECT_TRUE(facts.contains(fact)) << row.name << ": " << fact;
    }
  }
}

TEST(ReasonSentence, HasItsFacts) {
  EXPECT_EQ(sentence(Reason::kRelayOn, {{"since", "08:02"}, {"until", "08:03"}}),
            "the relay was on from 08:02 to 08:03");
  EXPECT_EQ(sentence(Reason::kNobodysCard, {}), "it is nobody's card");
}

TEST(ReasonSentence, ShowsAFactThatIsNotKnown) {
  EXPECT_EQ(sentence(Reason::kRelayOn, {{"since", "08:02"}}), "the relay was on from 08:02 to ?");
}

TEST(VerdictText, TellsAllReasonsAndFromWhenOnItWouldHaveBeenAnnounced) {
  const auto show = [](Time time) { return std::to_string(time.time_since_epoch() / milliseconds(1)) + " ms"; };
  Verdict verdict{{7, Time(milliseconds(2800))}, {}, false, {}};
  verdict.reasons.push_back(
      {Reason::kOtherCardTooSoon, Time(milliseconds(2550)), Time(milliseconds(3050)), milliseconds(500), 33});
  verdict.reasons.push_back(
      {Reason::kSameCardTooSoon, Time(milliseconds(1000)), Time(milliseconds(4000)), milliseconds(3000)});
  verdict.would_have_been_from = Time(milliseconds(4000));
  EXPECT_EQ(text_of(verdict, show),
            "card 33 was announced 0.25 s before, and read_interval_diff_tags was 0.5 s; "
            "the same card was announced 1.8 s before, and read_interval is 3.0 s; "
            "it would have been from 4000 ms on");
}

TEST(DurationText, HasOneDigitAtLeastAndThreeAtMost) {
  EXPECT_EQ(duration_text(milliseconds(3000)), "3.0 s");
  EXPECT_EQ(duration_text(milliseconds(250)), "0.25 s");
  EXPECT_EQ(duration_text(milliseconds(1)), "0.001 s");
  EXPECT_EQ(duration_text(milliseconds(-50)), "-0.05 s");
  EXPECT_EQ(duration_text(milliseconds(60'010)), "60.01 s");
  EXPECT_EQ(duration_text(std::chrono::nanoseconds(0)), "0.0 s");
}
