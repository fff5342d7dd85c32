// What a recording tells of a card: the rules from where it begins, and what it does not know.
#include "door/why/recollection.h"

#include <gmock/gmock.h>

#include <sstream>

#include "door/base/failure.h"
#include "door/why/standing.h"
#include "line/recorder.h"
#include "line/tests/samples.h"

namespace achost::why {
namespace {

using line::Bytes;
using line::Code;
using line::Direction;
using line::FrameType;
using std::chrono::seconds;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

const Time kBegin{std::chrono::hours(1)};
const Bytes kTag{0xE2, 0, 0, 33};
constexpr Card kCard = 33;
const std::string kEpc = "E2000021";

class RecollectionTest : public testing::Test {
 protected:
  static SettingTexts settings() {
    return {{"operation_mode", "continuous"}, {"trig_idle", "0"},
            {"trigger_timeout", "1000"},      {"read_interval", "3000"},
            {"read_interval_diff_tags", "0"}, {"probe_interval", "100"},
            {"identification_bits", "8"},     {"reader_type", "msb"}};
  }
  static Standing standing(std::string_view mode = "continuous", bool is_start = false) {
    Standing standing{.is_start = is_start, .settings = settings(), .trigger_line = 1, .level = 0};
    standing.settings["operation_mode"] = mode;
    return standing;
  }

  static Bytes report() {
    Bytes parameters{200, 0x30, 0};
    parameters.insert(parameters.end(), kTag.begin(), kTag.end());
    parameters.insert(parameters.end(), {0, 0});
    return frame_of(FrameType::notice, Code::inventory, parameters);
  }
  static Bytes question(Code code = Code::inventory) { return frame_of(FrameType::command, code, {}); }

  void to_reader(const Bytes& bytes, milliseconds at) { recorder_.add(Direction::to_reader, bytes, kBegin + at); }
  void from_reader(const Bytes& bytes, milliseconds at) { recorder_.add(Direction::from_reader, bytes, kBegin + at); }
  void note(const std::string& text, milliseconds at) { recorder_.note(text, kBegin + at); }
  void stands(const Standing& how, milliseconds at) { note(note_of(how, kBegin + at), at); }
  void poll(milliseconds at, bool is_read = true) {
    to_reader(question(), at - milliseconds(5));
    from_reader(is_read ? report() : frame_of(FrameType::response, Code::failure, Bytes{0x17}), at);
  }
  void announce(milliseconds at) { note("identifier_new_card identifier_id=1 value=33 device_id=1 uuid=u", at); }
  // So that what was before is settled.
  void end(milliseconds at = seconds(20)) { note("the end", at); }

  Recollection recall_it(const Question& question = {.card = kCard, .at = {}}) const {
    std::istringstream in(recorder_.text());
    return recall(in, "door.uhfrec", question);
  }
  std::vector<Reason> reasons(const Question& question = {.card = kCard, .at = {}}) const {
    std::vector<Reason> all;
    for (const auto& sighting : recall_it(question).evidence.sightings) {
      for (const auto& fate : sighting.fates) {
        all.push_back(fate.reasons.front().first);
      }
    }
    return all;
  }

  line::Recorder recorder_;
};

TEST_F(RecollectionTest, ARecordingOfTheStartTellsWhatTheRulesMakeOfEachReading) {
  stands(standing("continuous", true), milliseconds(0));
  poll(seconds(1));
  announce(milliseconds(1001));
  poll(seconds(2));
  end();
  EXPECT_THAT(reasons(), ElementsAre(Reason::kAnnounced, Reason::kSameCardTooSoon));
  EXPECT_THAT(reasons({.card = {}, .epc = kEpc, .at = {}}), SizeIs(2)) << "asked by its EPC";
  EXPECT_THAT(reasons({.card = 34, .at = {}}), IsEmpty());
  const auto known = recall_it();
  EXPECT_THAT(known.unknown, IsEmpty());
  EXPECT_EQ(known.evidence.sightings.front().fates.front().from - known.begins, 1000);
  EXPECT_EQ(known.ends - known.begins, 20000);
}

TEST_F(RecollectionTest, WhatWasAnnouncedBeforeItsBeginningCounts) {
  auto how = standing();
  how.was_announced(kCard, kBegin - seconds(1));
  stands(how, milliseconds(0));
  poll(seconds(1));
  poll(milliseconds(2100));
  announce(milliseconds(2101));
  end();
  EXPECT_THAT(reasons(), ElementsAre(Reason::kSameCardTooSoon, Reason::kAnnounced));
}

TEST_F(RecollectionTest, AnInputThatChangedBeforeItsBeginningCounts) {
  for (const auto& [mode, levels, reason] :
       std::vector<std::tuple<std::string, std::vector<int>, Reason>>{{"trigger", {}, Reason::kNeverTriggered},
                                                                      {"trigger", {1}, Reason::kUnexplained},
                                                                      {"trigger", {1, 0}, Reason::kUnexplained},
                                                                      {"inhibit", {1}, Reason::kInhibitActive},
                                                                      {"inhibit", {1, 0}, Reason::kDeadTime},
                                                                      {"inhibit", {0}, Reason::kUnexplained},
                                                                      {"inhibit", {}, Reason::kUnexplained}}) {
    line::Recorder recorder;
    auto how = standing(mode);
    Time at = kBegin - milliseconds(300);
    for (const int level : levels) {
      how.changed_to(level, at);
      at += milliseconds(100);
    }
    recorder.note(note_of(how, kBegin), kBegin);
    recorder.add(Direction::to_reader, question(), kBegin + milliseconds(95));
    recorder.add(Direction::from_reader, report(), kBegin + milliseconds(100));
    recorder.note("the end", kBegin + seconds(20));
    std::istringstream in(recorder.text());
    const auto known = recall(in, "door.uhfrec", {.card = kCard, .at = {}});
    ASSERT_THAT(known.evidence.sightings, SizeIs(1)) << mode << levels.size();
    const auto& [told, text] = known.evidence.sightings[0].fates[0].reasons.front();
    EXPECT_EQ(told, reason) << mode << levels.size();
    if (told == Reason::kInhibitActive) {
      const Milliseconds edge{milliseconds(known.begins - 300)};
      EXPECT_EQ(text, "the inhibit input was active from " + local_time(edge, "%H:%M:%S.%L") + " on");
    }
  }
}

TEST_F(RecollectionTest, AChangeCountsFromItsTimeOn) {
  stands(standing("trigger", true), milliseconds(0));
  poll(milliseconds(500));
  note("gpio_notified gpio=2 value=1", milliseconds(600));
  poll(milliseconds(700));
  note("gpio_notified gpio=1 value=1", milliseconds(800));
  poll(milliseconds(900));
  announce(milliseconds(901));
  note("config_param_set module=uhf param=operation_mode value=none of them previous_value=trigger sys_config=0",
       milliseconds(1000));
  poll(milliseconds(1100));
  note("config_param_set module=host param=operation_mode value=continuous previous_value=x sys_config=0",
       milliseconds(1200));
  poll(milliseconds(1300));
  end();
  EXPECT_THAT(reasons(), ElementsAre(Reason::kNeverTriggered, Reason::kAnnounced, Reason::kModeUnknown));
}

// Whoever notes how things stand may have been told a moment later than the recording.
TEST_F(RecollectionTest, AChangeThatStandsBeforeItIsSaidHowThingsStandCounts) {
  note("config_param_set module=uhf param=operation_mode value=trigger previous_value=continuous sys_config=0",
       milliseconds(10));
  note("gpio_notified gpio=1 value=1", milliseconds(60));
  stands(standing("continuous"), milliseconds(20));
  poll(milliseconds(40));
  poll(milliseconds(100));
  end();
  EXPECT_THAT(reasons(), ElementsAre(Reason::kNeverTriggered, Reason::kUnexplained)) << "triggered, it is expected";
}

TEST_F(RecollectionTest, BeforeItIsSaidHowThingsStandAReadingHasNoReasonButThoseOfTheLine) {
  poll(seconds(1));
  auto bad = report();
  bad[bad.size() - 2] ^= 1;
  const auto good = report();
  bad.insert(bad.end(), good.begin(), good.end());
  to_reader(question(), milliseconds(1995));
  from_reader(bad, milliseconds(2000));
  stands(standing(), seconds(4));
  poll(seconds(5));
  end();
  EXPECT_THAT(reasons(), ElementsAre(Reason::kSettingsUnknown, Reason::kBadFrame, Reason::kUnexplained));
  EXPECT_THAT(recall_it().unknown, ElementsAre(HasSubstr("how things stood before ")));
}

TEST_F(RecollectionTest, WithoutSettingsItTellsWhatWasReadAndWhichTagsThereAre) {
  poll(seconds(1));
  poll(seconds(2));
  end();
  EXPECT_THAT(reasons({.card = {}, .epc = kEpc, .at = {}}), ElementsAre(Reason::kSettingsUnknown));
  const auto known = recall_it({.card = {}, .epc = kEpc, .at = {}});
  EXPECT_EQ(known.evidence.sightings.at(0).polls, 2);
  EXPECT_EQ(known.evidence.sightings.at(0).rssi, 200);
  EXPECT_THAT(known.unknown, ElementsAre(HasSubstr("the settings, the input")));
  try {
    recall_it();
    ADD_FAILURE() << "a card needs settings";
  } catch (const Failure& failure) {
    EXPECT_STREQ(failure.what(),
                 "door.uhfrec: what the settings were is not in it, and so not which tag is which card: ask for an "
                 "EPC; it has E2000021");
  }
}

TEST_F(RecollectionTest, WithoutABeginningTimesCountFromMidnight) {
  std::istringstream in("# uhf recording 1\n1.5 > 7F\n3.0 < 7F\n");
  const auto known = recall(in, "door.uhfrec", {.card = {}, .epc = kEpc, .at = {}});
  EXPECT_EQ(local_time(Milliseconds(milliseconds(known.begins)), "%H:%M:%S"), "00:00:00");
  EXPECT_EQ(known.ends - known.begins, 3000);
  EXPECT_THAT(known.unknown, testing::Contains(HasSubstr("when it was made")));
}

TEST_F(RecollectionTest, WhileTheLineIsLentNobodyReadsForTheDoor) {
  stands(standing("continuous", true), milliseconds(0));
  note("the line is lent to uhfctl", milliseconds(500));
  poll(seconds(1));
  note("the line comes back from uhfctl: it has gone", milliseconds(1500));
  end();
  EXPECT_THAT(reasons(), IsEmpty());
}

TEST_F(RecollectionTest, WhatTheLineAsksForItselfEndsNoQuestionOfThePlugIn) {
  stands(standing("continuous", true), milliseconds(0));
  to_reader(question(), seconds(1));
  to_reader(question(Code::get_power), milliseconds(1800));
  from_reader(frame_of(FrameType::response, Code::get_power, Bytes{0x0A, 0x28}), milliseconds(1810));
  from_reader(report(), milliseconds(1900));
  announce(milliseconds(1901));
  end();
  EXPECT_THAT(reasons(), ElementsAre(Reason::kAnnounced));
}

TEST_F(RecollectionTest, WhenNotesAreMissingItSaysSoAndGoesOnFromWhereItIsSaidHowThingsStand) {
  stands(standing("inhibit", true), milliseconds(0));
  note(std::string(line::kNotesMissing), seconds(1));
  poll(seconds(2));
  auto how = standing("trigger");
  stands(how, seconds(3));
  poll(seconds(4));
  how.settings["operation_mode"] = "none";
  stands(how, seconds(5));
  poll(seconds(6));
  end();
  EXPECT_THAT(reasons(), ElementsAre(Reason::kUnexplained, Reason::kNeverTriggered))
      << "while none is missing, changes alone count";
  EXPECT_THAT(recall_it().unknown, ElementsAre(HasSubstr("some of what happened before ")));
}

TEST_F(RecollectionTest, WhatTheDoorDidIsTold) {
  stands(standing("continuous", true), milliseconds(0));
  note("identifier_decision value=33 device_id=1 uuid=u outcome=opens user_id=7 user_name=Ana Maria", seconds(1));
  note("identifier_decision value=34 device_id=1 uuid=u outcome=unknown", seconds(1));
  note("door_state id=1 open=1 reason=0", milliseconds(1001));
  note("door_state id=1 open=0 reason=0", seconds(2));
  note("door_refused", seconds(3));
  note("reader_state state=silent cause=no good answer for 1.5 s way_out=check its power", seconds(4));
  const auto known = recall_it();
  std::vector<Kind> kinds;
  for (const auto& entry : known.evidence.entries) {
    kinds.push_back(entry.entry.kind);
  }
  EXPECT_THAT(kinds,
              ElementsAre(Kind::identification, Kind::opening, Kind::closing, Kind::refusal, Kind::reader_state));
  const auto& [kind, user, card, fields] = known.evidence.entries.front().entry;
  EXPECT_EQ(user, 7);
  EXPECT_EQ(card, kCard);
  EXPECT_THAT(fields, ElementsAre(EntryField("outcome", "opens")));
  EXPECT_THAT(known.evidence.entries.back().entry.fields,
              ElementsAre(EntryField("state", "silent"), EntryField("cause", "no good answer for 1.5 s")));
  EXPECT_EQ(known.names.at(7), "Ana Maria");
}

TEST_F(RecollectionTest, AReaderThatWasSilentBeforeItsBeginningIsTold) {
  auto how = standing();
  how.reader = {"silent", "no good answer", kBegin - seconds(60)};
  stands(how, milliseconds(0));
  end();
  const auto known = recall_it();
  const auto answer = explain({.card = kCard, .from = known.begins, .to = known.ends, .at = {}}, known.evidence,
                              [](std::int64_t) { return std::string(); });
  EXPECT_EQ(answer.reasons.front().first, Reason::kReaderSilent);
}

TEST_F(RecollectionTest, AReadingNobodyJudgesIsNotSaidToBeUnannounced) {
  poll(seconds(1));
  end();
  const auto known = recall_it({.card = {}, .epc = kEpc, .at = {}});
  const auto answer = explain({.card = {}, .epc = kEpc, .from = known.begins, .to = known.ends, .at = {}},
                              known.evidence, [](std::int64_t) { return std::string(); });
  EXPECT_THAT(answer.answer, testing::Not(HasSubstr("not announced")));
  EXPECT_THAT(answer.timeline.front().text, HasSubstr("; announced or not"));
}

TEST_F(RecollectionTest, ADamagedOneIsRefusedWithItsNameAndLine) {
  std::istringstream in("# uhf recording 1\n1.5 > 7F\nx\n");
  try {
    recall(in, "door.uhfrec", {.card = kCard, .at = {}});
    ADD_FAILURE();
  } catch (const Failure& failure) {
    EXPECT_THAT(failure.what(), testing::StartsWith("door.uhfrec:3: expected SECONDS"));
  }
}

}  // namespace
}  // namespace achost::why
