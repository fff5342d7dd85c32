// How things stand, as a note and back.
#include "door/why/standing.h"

#include <gmock/gmock.h>

namespace achost::why {
namespace {

using std::chrono::hours;
using std::chrono::microseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;

const Time kNow{hours(1)};

Standing some_standing() {
  Standing standing{.settings = {{"read_interval", "3000"}, {"reader_type", "lsb"}}, .trigger_line = 1};
  standing.changed_to(1, kNow - seconds(5));
  standing.changed_to(0, kNow - microseconds(1));
  standing.was_announced(~Card{0}, kNow - seconds(2));
  standing.reader = {"silent", "no \"answer\"\n \xFF", kNow - seconds(4)};
  return standing;
}

TEST(StandingTest, ANoteOfItIsOneLineAndGivesItBack) {
  auto standing = some_standing();
  const auto note = note_of(standing, kNow);
  EXPECT_EQ(note.find('\n'), std::string::npos);
  standing.reader->cause = "no \"answer\"\n \xEF\xBF\xBD";
  EXPECT_EQ(standing_of(note), standing);
  EXPECT_EQ(standing_of(note_of(Standing{.is_start = true}, kNow)), Standing{.is_start = true});
}

TEST(StandingTest, TheLatestTwoChangesOfTheInputAndTheLatestCardsAreKept) {
  Standing standing = some_standing();
  standing.changed_to(1, kNow);
  EXPECT_THAT(standing.edges, ElementsAre(std::pair(kNow - microseconds(1), 0), std::pair(kNow, 1)));
  EXPECT_EQ(standing.level, 1);
  for (Card card = 1; card <= Standing::kMostAnnounced; ++card) {
    standing.was_announced(card, kNow);
  }
  EXPECT_EQ(standing.announced.size(), Standing::kMostAnnounced);
  EXPECT_EQ(standing.announced.front().second, 1U);
}

TEST(StandingTest, ACardThatNoIntervalReachesIsNotNoted) {
  Standing standing{.settings = {{"read_interval", "3000"}, {"read_interval_diff_tags", "500"}}};
  standing.was_announced(33, kNow - seconds(20));
  standing.was_announced(34, kNow - seconds(3));
  EXPECT_THAT(standing_of(note_of(standing, kNow))->announced, ElementsAre(std::pair(kNow - seconds(3), Card{34})));
}

TEST(StandingTest, AnotherOrADamagedNoteIsNone) {
  const auto note = note_of(some_standing(), kNow);
  for (std::size_t size = 0; size < note.size(); ++size) {
    EXPECT_EQ(standing_of(note.substr(0, size)), std::nullopt) << size;
  }
  EXPECT_EQ(standing_of("reader silent"), std::nullopt);
  EXPECT_EQ(standing_of("standing []"), std::nullopt);
}

TEST(StandingTest, SettingsAreReadAsTheyAreStored) {
  const auto settings = settings_of({{"operation_mode", "INHIBIT"},
                                     {"trig_idle", "1"},
                                     {"trigger_timeout", "5000"},
                                     {"read_interval", "3000"},
                                     {"read_interval_diff_tags", "500"},
                                     {"probe_interval", "17"},
                                     {"identification_bits", "32"},
                                     {"reader_type", "msb"}});
  EXPECT_EQ(settings, (WitnessSettings{.rules = {Mode::kInhibit, 1, seconds(5), seconds(3), milliseconds(500)},
                                       .probe_interval = milliseconds(17),
                                       .identification_bits = 32,
                                       .reader_type = "msb"}));
  EXPECT_EQ(settings_of({{"operation_mode", "none"}}).rules.operation_mode, Mode::kUnknown);
}

}  // namespace
}  // namespace achost::why
