// The answer to why, from what is known.
#include "door/why/explain.h"

#include <gmock/gmock.h>

#include "door/journal/entry_code.h"

namespace achost::why {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::int64_t kSecondMs = 1000;
constexpr std::int64_t kTen = 36'000'000;  // in the morning of 1970-01-01, UTC

class ExplainTest : public testing::Test {
 protected:
  ExplainTest() {
    setenv("TZ", "UTC", 1);
    tzset();
  }

  void entry(Kind kind, std::int64_t time, std::vector<EntryField> fields = {}, std::optional<Card> card = {},
             std::optional<std::int64_t> user = {}) {
    JournalEntry entry;
    entry.number = static_cast<std::int64_t>(evidence_.entries.size()) + 1;
    entry.time.wall = time;
    entry.entry = {.kind = kind, .user = user, .card = card, .fields = std::move(fields)};
    evidence_.entries.push_back(std::move(entry));
  }
  void fate(std::int64_t from, std::int64_t polls, Reason reason) {
    evidence_.sightings.push_back({.epc = "E2",
                                   .card = 33,
                                   .first = from,
                                   .last = from + polls - 1,
                                   .polls = polls,
                                   .rssi = 200,
                                   .fates = {{.from = from,
                                              .to = from + polls - 1,
                                              .polls = polls,
                                              .reasons = {{reason, std::string(row_of(reason).name)}}}}});
  }
  Explanation ask(std::optional<std::int64_t> at = {}, Card card = 33) const {
    return explain({.card = card, .from = kTen, .to = kTen + 600 * kSecondMs, .at = at}, evidence_,
                   [](std::int64_t user) { return user == 7 ? "Ana" : ""; });
  }
  static std::vector<Reason> reasons(const Explanation& explanation) {
    std::vector<Reason> all;
    for (const auto& [reason, text] : explanation.reasons) {
      all.push_back(reason);
    }
    return all;
  }

  Evidence evidence_;
};

TEST_F(ExplainTest, AnOpeningIsToldWithTheTimeOfTheRelay) {
  fate(kTen + 5000, 1, Reason::kAnnounced);
  entry(Kind::identification, kTen + 5001, {{"outcome", "opens"}}, 33, 7);
  entry(Kind::opening, kTen + 5002);
  entry(Kind::closing, kTen + 8002);
  const auto answer = ask();
  EXPECT_TRUE(answer.opened);
  EXPECT_THAT(reasons(answer), ElementsAre(Reason::kRelayOn, Reason::kAnnounced));
  EXPECT_EQ(answer.answer,
            "Card 33 of Ana (7) opened the door at 10:00:05.000: the relay was on from 10:00:05.002 to 10:00:08.002.");
}

TEST_F(ExplainTest, AnOpeningIsToldWithWhatTheDoorsContactSaidOfIt) {
  const auto come = [this](std::int64_t time, const char* state) {
    fate(time, 1, Reason::kAnnounced);
    entry(Kind::identification, time + 1, {{"outcome", "opens"}}, 33, 7);
    entry(Kind::opening, time + 2);
    entry(Kind::contact, time + 1500, {{"state", state}});
    entry(Kind::closing, time + 3002);
  };
  come(kTen + 5000, "opened");
  entry(Kind::contact, kTen + 9000, {{"state", "closed"}});
  come(kTen + 15000, "not_used");
  const auto answer = ask();
  EXPECT_TRUE(answer.opened);
  EXPECT_THAT(reasons(answer), ElementsAre(Reason::kRelayOn, Reason::kDoorNotUsed, Reason::kAnnounced));
  const auto before = ask(kTen + 5000);
  EXPECT_THAT(reasons(before), ElementsAre(Reason::kRelayOn, Reason::kDoorOpened, Reason::kAnnounced));
  EXPECT_EQ(before.reasons.at(1).second, "the door itself was opened at 10:00:06.500");
  entry(Kind::mode, kTen + 20000, {{"mode", "locked"}, {"asked", "schedule"}});
  const auto text = text_of(ask(), "1970-01-01");
  EXPECT_THAT(text, HasSubstr("10:00:09.000  the door is shut\n"));
  EXPECT_THAT(text, HasSubstr("10:00:16.500  the door was released, and nobody opened it\n"));
  EXPECT_THAT(text, HasSubstr("10:00:20.000  the door is in mode locked, by its schedule\n"));
}

TEST_F(ExplainTest, ADoorThatWasOpenAlreadyStayedSo) {
  entry(Kind::opening, kTen + 4000);
  fate(kTen + 5000, 1, Reason::kAnnounced);
  entry(Kind::identification, kTen + 5001, {{"outcome", "opens"}}, 33, 8);
  entry(Kind::closing, kTen + 8002);
  EXPECT_EQ(ask().answer,
            "Card 33 of 8 opened the door at 10:00:05.000: the relay was on from 10:00:04.000 to 10:00:08.002.");
}

TEST_F(ExplainTest, EachOutcomeThatDoesNotOpenIsAReason) {
  const std::pair<const char*, Reason> outcomes[] = {{"unknown", Reason::kNobodysCard},
                                                     {"blocked", Reason::kUserBlocked},
                                                     {"not_yet_valid", Reason::kNotYetValid},
                                                     {"no_longer_valid", Reason::kNoLongerValid},
                                                     {"held_back", Reason::kHeldByEnrollment},
                                                     {"failed", Reason::kUsersUnreadable},
                                                     {"mode_awaited", Reason::kModeAwaited},
                                                     {"journal_unwritable", Reason::kJournalUnwritable},
                                                     {"still_here", Reason::kStillHere},
                                                     {"outside_schedule", Reason::kOutsideSchedule},
                                                     {"clock_untrusted", Reason::kClockUntrusted},
                                                     {"too_soon_after_entry", Reason::kTooSoonAfterEntry},
                                                     {"door_locked", Reason::kDoorLocked}};
  std::int64_t time = kTen;
  for (const auto& [outcome, reason] : outcomes) {
    time += 10 * kSecondMs;
    fate(time, 1, Reason::kAnnounced);
    entry(Kind::identification, time, {{"outcome", outcome}}, 33, 7);
    const auto answer = ask();
    EXPECT_FALSE(answer.opened);
    EXPECT_THAT(reasons(answer), ElementsAre(reason, Reason::kAnnounced)) << outcome;
  }
}

TEST_F(ExplainTest, AllThatHeldACardBackIsToldWithItsTimesTheDecisiveFirst) {
  fate(kTen + 5000, 1, Reason::kAnnounced);
  entry(Kind::identification, kTen + 5001,
        {{"outcome", "blocked"}, {"also", "not_yet_valid no_longer_valid"}, {"from", kTen}, {"until", kTen + 60000}},
        33, 7);
  const auto answer = ask();
  EXPECT_THAT(answer.reasons,
              ElementsAre(std::pair(Reason::kUserBlocked, "its user Ana (7) is blocked"),
                          std::pair(Reason::kNotYetValid, "its user Ana (7) is valid from 1970-01-01 10:00 on"),
                          std::pair(Reason::kNoLongerValid, "its user Ana (7) was valid until 1970-01-01 10:01"),
                          std::pair(Reason::kAnnounced, "announced")));
}

TEST_F(ExplainTest, ARuleThatHeldACardBackIsToldWithItsFacts) {
  const std::tuple<std::vector<EntryField>, Reason, const char*> cases[] = {
      {{{"outcome", "outside_schedule"}, {"schedule", "office"}, {"next", kTen + 60'000}},
       Reason::kOutsideSchedule,
       "schedule office of its user Ana (7) was shut, and opens next at 1970-01-01 10:01"},
      {{{"outcome", "too_soon_after_entry"}, {"pause_ends", kTen + 60'000}},
       Reason::kTooSoonAfterEntry,
       "its user Ana (7) had come in already, and could again from 1970-01-01 10:01 on"},
      {{{"outcome", "clock_untrusted"}, {"clock_known", kTen}},
       Reason::kClockUntrusted,
       "its user Ana (7) has a rule of time, and the clock, which had shown 1970-01-01 10:00 before, was not to be "
       "trusted"},
      {{{"outcome", "still_here"}, {"here_since", kTen}, {"away_time", 10'000}},
       Reason::kStillHere,
       "it had opened the door at 10:00:00.000 and had not left since: host.away_time is 10000 ms"}};
  std::int64_t time = kTen;
  for (const auto& [fields, reason, words] : cases) {
    time += 10 * kSecondMs;
    fate(time, 1, Reason::kAnnounced);
    entry(Kind::identification, time, fields, 33, 7);
    EXPECT_EQ(ask().reasons.front(), std::pair(reason, std::string(words)));
  }
}

TEST_F(ExplainTest, ACardThatWasSaidToBeThereStillIsSoWhenItIsAnnouncedWithinTheMinute) {
  entry(Kind::identification, kTen, {{"outcome", "opens"}}, 33, 7);
  entry(Kind::identification, kTen + 3000, {{"outcome", "still_here"}, {"here_since", kTen}}, 33, 7);
  entry(Kind::identification, kTen + 4000, {{"outcome", "opens"}}, 34, 8);
  fate(kTen + 60'000, 1, Reason::kAnnounced);
  EXPECT_THAT(reasons(ask()), ElementsAre(Reason::kStillHere, Reason::kAnnounced));
  fate(kTen + 66'000, 1, Reason::kAnnounced);
  EXPECT_THAT(reasons(ask()), ElementsAre(Reason::kAnnounced)) << "that was longer ago";
  entry(Kind::identification, kTen + 67'000, {{"outcome", "unknown"}}, 33);
  fate(kTen + 70'000, 1, Reason::kAnnounced);
  EXPECT_THAT(reasons(ask()), ElementsAre(Reason::kAnnounced)) << "that was said of it last";
}

TEST_F(ExplainTest, UsersThatCouldNotBeReadAreToldWithTheReason) {
  fate(kTen + 5000, 1, Reason::kAnnounced);
  entry(Kind::identification, kTen + 5001, {{"outcome", "failed"}, {"reason", "users.db: disk I/O error"}}, 33);
  EXPECT_EQ(ask().reasons.front().second, "the users could not be read: users.db: disk I/O error");
}

TEST_F(ExplainTest, EachStateInWhichTheReaderReadsNothingIsAReason) {
  for (const auto& [state, cause, reason, words] :
       {std::tuple("silent", "no answer", Reason::kReaderSilent, "the reader was silent from 10:00:05.000 on"),
        {"noisy", "bad frames", Reason::kReaderNoisy,
         "the reader's answers were not good from 10:00:05.000 on: bad frames"},
        {"gone", "pulled out", Reason::kReaderGone, "the reader's port was gone from 10:00:05.000 on"},
        {"lent", "lent to Ben", Reason::kReaderLent, "the reader was lent to Ben from 10:00:05.000 on"},
        {"lent", "the reader gets its settings again", Reason::kReaderLent,
         "the reader was lent to somebody, who gives it back, from 10:00:05.000 on"}}) {
    evidence_.entries.clear();
    entry(Kind::reader_state, kTen + 5000, {{"state", state}, {"cause", cause}});
    const auto answer = ask(kTen + 6000);
    EXPECT_EQ(answer.reasons.front(), std::pair(reason, std::string(words)));
    EXPECT_THAT(reasons(answer), ElementsAre(reason, Reason::kNeverInField));
  }
}

TEST_F(ExplainTest, ARelayOfTheDetectorIsToldByItsRefusal) {
  fate(kTen + 5000, 1, Reason::kAnnounced);
  entry(Kind::identification, kTen + 5001, {{"outcome", "opens"}}, 33, 7);
  entry(Kind::refusal, kTen + 5002);
  EXPECT_THAT(reasons(ask()), ElementsAre(Reason::kRelayOfDetector, Reason::kAnnounced));
}

TEST_F(ExplainTest, TheLastAnnouncementIsTheAnswerAndWithATimeWhatLiesNearest) {
  fate(kTen + 1000, 1, Reason::kAnnounced);
  fate(kTen + 2000, 100, Reason::kSameCardTooSoon);
  fate(kTen + 60000, 5, Reason::kInhibitActive);
  EXPECT_EQ(reasons(ask()).front(), Reason::kAnnounced);
  EXPECT_EQ(reasons(ask(kTen + 2050)).front(), Reason::kSameCardTooSoon);
  EXPECT_EQ(reasons(ask(kTen + 300000)).front(), Reason::kInhibitActive);
  EXPECT_EQ(ask().timeline.size(), 3U);
}

TEST_F(ExplainTest, ACardThatWasNotReadIsToldWithWhatHinderedIt) {
  EXPECT_THAT(reasons(ask()), ElementsAre(Reason::kNeverInField));
  entry(Kind::reader_state, kTen - 5000, {{"state", "silent"}, {"cause", ""}});
  entry(Kind::reader_state, kTen + 5000, {{"state", "answering"}});
  entry(Kind::reader_state, kTen + 60000, {{"state", "gone"}, {"cause", "pulled"}});
  EXPECT_THAT(reasons(ask()), ElementsAre(Reason::kReaderGone, Reason::kNeverInField, Reason::kReaderSilent));
  EXPECT_THAT(reasons(ask(kTen + 1000)),
              ElementsAre(Reason::kReaderSilent, Reason::kNeverInField, Reason::kReaderGone));
  EXPECT_THAT(reasons(ask(kTen + 30000)),
              ElementsAre(Reason::kNeverInField, Reason::kReaderSilent, Reason::kReaderGone));
}

TEST_F(ExplainTest, ADaemonThatDidNotRunIsToldAlsoAfterACrash) {
  entry(Kind::end, kTen + 1000);
  entry(Kind::start, kTen + 2000, {{"run_before", "ended"}});
  entry(Kind::opening, kTen + 9000);
  entry(Kind::start, kTen + 60000, {{"run_before", "without an end"}});
  const auto answer = ask(kTen + 30000);
  EXPECT_THAT(reasons(answer), ElementsAre(Reason::kNotRunning, Reason::kNeverInField, Reason::kNotRunning));
  EXPECT_THAT(answer.answer, HasSubstr("the door daemon did not run from 10:00:09.000 to 10:01:00.000"));
}

TEST_F(ExplainTest, OtherCardsAndTimesAreNotAskedFor) {
  fate(kTen - 5000, 10, Reason::kAnnounced);
  fate(kTen + 700 * kSecondMs, 10, Reason::kAnnounced);
  EXPECT_THAT(reasons(ask()), ElementsAre(Reason::kNeverInField));
  fate(kTen + 5000, 1, Reason::kAnnounced);
  EXPECT_THAT(reasons(ask({}, 34)), ElementsAre(Reason::kNeverInField));
  EXPECT_THAT(ask({}, 34).timeline, IsEmpty());
}

TEST_F(ExplainTest, ReadsAsSentencesWithTheTimelineBehind) {
  fate(kTen + 5000, 1, Reason::kAnnounced);
  entry(Kind::identification, kTen + 5001, {{"outcome", "unknown"}}, 33);
  fate(kTen + 5020, 14, Reason::kSameCardTooSoon);
  evidence_.sightings.back().fates.front().announced_from = kTen + 8000;
  EXPECT_EQ(text_of(ask(), "1970-01-02"),
            "Card 33 did not open the door at 10:00:05.000: it is nobody's card.\n"
            "\n"
            "1970-01-01\n"
            "10:00:05.000  read once, RSSI 200; announced:\n"
            "              it is nobody's card\n"
            "10:00:05.020  read 14 times until 10:00:05.033, RSSI 200; not announced:\n"
            "              same_card_too_soon; it would have been from 10:00:08.000 on\n");
}

TEST_F(ExplainTest, ASightingIsReadFromTheJournalAsItWasWritten) {
  fate(kTen + 5020, 14, Reason::kSameCardTooSoon);
  auto sighting = evidence_.sightings.back();
  sighting.fates.front().announced_from = kTen + 8000;
  sighting.fates.front().at_boundary = true;
  sighting.goes_on = true;
  EXPECT_EQ(sighting_of(entry_of(sighting)), sighting);
  EXPECT_THROW(sighting_of(Entry{.kind = Kind::sighting}), std::runtime_error);
}

TEST(Sightings, WithMoreFatesThanTheJournalKeepsHaveTheLatest) {
  ToldSighting sighting{.epc = "E2", .card = 33, .polls = 100, .fates = {}};
  for (int i = 0; i < 100; ++i) {
    sighting.fates.push_back({.from = i, .to = i, .polls = 1, .reasons = {{Reason::kBadFrame, std::string(90, 'x')}}});
  }
  const auto entry = entry_of(sighting);
  EXPECT_EQ(fields_of_json(json_of_fields(entry.fields)), entry.fields) << "nothing is cut";
  const auto found = sighting_of(entry);
  EXPECT_GT(found.fates.size(), 10U);
  EXPECT_EQ(found.fates.back(), sighting.fates.back());
}

}  // namespace
}  // namespace achost::why
