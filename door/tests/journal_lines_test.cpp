#include "door/cli/journal_lines.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>

#include "door/journal/entry_code.h"

namespace achost::test {
namespace {

constexpr std::int64_t kMonday = 1763967731000;  // 2025-11-24 07:02:11 UTC

JournalStyle diary(JournalForm form = JournalForm::diary) {
  return {.form = form, .name_of = [](std::int64_t user) { return user == 7 ? std::string("Ana") : std::string(); }};
}

JournalEntry at(std::int64_t time, Entry entry, bool is_trusted = true) {
  return {.number = 5,
          .time = {.wall = time, .offset = 3600, .monotonic = 17, .is_trusted = is_trusted},
          .boot = "b00",
          .entry = std::move(entry)};
}

const Entry kAnaComesIn = {.kind = Kind::identification, .user = 7, .card = 33, .fields = {{"outcome", "opens"}}};

std::string text_of(const JournalStyle& style, const std::vector<JournalEntry>& entries) {
  JournalLines lines(style);
  std::string text = lines.heading();
  for (const auto& entry : entries) {
    lines.append(text, entry);
  }
  return text;
}

TEST(JournalLinesTest, ADiaryReadsLikeOneWithAHeadingForEachDay) {
  constexpr std::int64_t kDay = 86400000;
  EXPECT_EQ(text_of(diary(), {at(kMonday + kDay, kAnaComesIn), at(kMonday + kDay + 1000, {.kind = Kind::closing}),
                              at(kMonday + 2 * kDay, {.kind = Kind::exit_request}, false)}),
            "Tuesday, 2025-11-25\n"
            "Tue 08:02:11  Ana (7)               came in with card 33\n"
            "Tue 08:02:12  door                  closes\n"
            "\n"
            "Wednesday, 2025-11-26\n"
            "Wed 08:02:11? somebody              wants to leave\n");
}

TEST(JournalLinesTest, ALineForAFileHasItsDate) {
  EXPECT_EQ(text_of(diary(JournalForm::lines), {at(kMonday, kAnaComesIn)}),
            "2025-11-24 Mon 08:02:11  Ana (7)               came in with card 33\n");
}

TEST(JournalLinesTest, EachKindIsASentence) {
  const auto sentence = [](const Entry& entry) {
    const auto [who, what] = sentence_of(entry, diary());
    return who + " " + what;
  };
  const auto refused = [&](const char* outcome) {
    return sentence({.kind = Kind::identification, .card = 33, .fields = {{"outcome", outcome}}});
  };
  EXPECT_EQ(sentence(kAnaComesIn), "Ana (7) came in with card 33");
  EXPECT_EQ(refused("unknown"), "somebody card 33 was refused: it is nobody's");
  EXPECT_EQ(refused("blocked"), "somebody card 33 was refused: who has it is blocked");
  EXPECT_EQ(refused("not_yet_valid"), "somebody card 33 was refused: the time of who has it has not come");
  EXPECT_EQ(refused("no_longer_valid"), "somebody card 33 was refused: the time of who has it is over");
  EXPECT_EQ(refused("held_back"), "somebody card 33 held back: a card is being enrolled");
  EXPECT_EQ(refused("mode_awaited"), "somebody card 33 was refused: the stored operation mode is not in force yet");
  EXPECT_EQ(refused("door_locked"), "somebody card 33 was refused: the door is locked");
  EXPECT_EQ(refused("failed"), "somebody card 33 was refused: the users cannot be read");
  EXPECT_EQ(refused("journal_unwritable"), "somebody card 33 was refused: the journal cannot be written");
  EXPECT_EQ(refused("a new one"), "somebody card 33 a new one");
  EXPECT_EQ(sentence({.kind = Kind::opening, .fields = {{"reason", "exit request"}}}), "door opens: exit request");
  EXPECT_EQ(sentence({.kind = Kind::enrollment, .user = 8, .card = 33, .fields = {{"outcome", "done"}}}),
            "user 8 was given card 33");
  EXPECT_EQ(sentence({.kind = Kind::enrollment, .user = 8, .fields = {{"outcome", "failed"}, {"reason", "taken"}}}),
            "user 8 got no card: taken");
  EXPECT_EQ(sentence({.kind = Kind::user_change,
                      .user = 7,
                      .fields = {{"change", "changed"}, {"name", "Eve"}, {"by_uid", std::int64_t{5}}, {"by", "root"}}}),
            "root changed Ana (7): name=Eve");
  EXPECT_EQ(sentence({.kind = Kind::card_change, .user = 7, .card = 33, .fields = {{"change", "removed"}}}),
            "the device removed card 33 of Ana (7)");
  EXPECT_EQ(sentence({.kind = Kind::setting_change,
                      .fields = {{"setting", "uhf.region"},
                                 {"value", "EUROPE"},
                                 {"previous_value", ""},
                                 {"by_uid", std::int64_t{1000}},
                                 {"by", ""}}}),
            "uid 1000 set uhf.region to EUROPE (was nothing)");
  EXPECT_EQ(sentence({.kind = Kind::reader_state, .fields = {{"state", "silent"}, {"cause", "no answer"}}}),
            "reader silent: no answer");
  EXPECT_EQ(sentence({.kind = Kind::alarm, .fields = {{"name", "disk"}, {"state", "over"}, {"text", "full"}}}),
            "alarm disk over: full");
  EXPECT_EQ(sentence({.kind = Kind::start, .fields = {{"version", "1"}, {"run_before", "without an end"}}}),
            "achost begins, version 1; the run before without an end");
  EXPECT_EQ(sentence({.kind = Kind::end, .fields = {{"reason", "asked for"}, {"status", std::int64_t{0}}}}),
            "achost ends: asked for (status 0)");
  EXPECT_EQ(sentence({.kind = Kind::clock_jump, .fields = {{"by_ms", std::int64_t{-1500}}}}),
            "clock was set back by 1.5 s");
  EXPECT_EQ(sentence({.kind = Kind::gap, .fields = {{"lost", std::int64_t{12}}, {"reason", "full"}}}),
            "journal lacks 12 entries: full");
  EXPECT_EQ(sentence({.kind = Kind::retention, .fields = {{"first", std::int64_t{1}}, {"last", std::int64_t{1000}}}}),
            "journal let entries 1 to 1,000 go");
  const auto contact = [&](const char* state) {
    return sentence({.kind = Kind::contact, .fields = {{"state", state}}});
  };
  EXPECT_EQ(contact("opened"), "door is open");
  EXPECT_EQ(contact("closed"), "door is shut");
  EXPECT_EQ(contact("forced"), "door was forced: opened without a release");
  EXPECT_EQ(contact("held_warning"), "door stands open");
  EXPECT_EQ(contact("held_alarm"), "door has been left open");
  EXPECT_EQ(contact("not_used"), "door was released, and nobody opened it");
  EXPECT_EQ(contact("a new one"), "door a new one");
  for (const auto& [by, words] : {std::pair("command", ", by command"),
                                  {"input", ", by the mode switch"},
                                  {"schedule", ", by its schedule"},
                                  {"nobody", ""}}) {
    EXPECT_EQ(sentence({.kind = Kind::mode, .fields = {{"mode", "locked"}, {"asked", by}}}),
              std::string("door is in mode locked") + words);
  }
  EXPECT_EQ(
      sentence({.kind = Kind::command, .fields = {{"what", "open"}, {"by_uid", std::int64_t{0}}, {"by", "root"}}}),
      "root opened the door by command");
  EXPECT_EQ(
      sentence(
          {.kind = Kind::command,
           .fields = {{"what", "locked"}, {"seconds", std::int64_t{5400}}, {"by_uid", std::int64_t{7}}, {"by", ""}}}),
      "uid 7 told the door to be locked for 1 h 30 min");
  const auto command = [&](std::vector<EntryField> fields) {
    fields.insert(fields.end(), {{"by_uid", std::int64_t{7}}, {"by", "achost-web"}, {"on_behalf_of", "ana"}});
    return sentence({.kind = Kind::command, .user = 7, .fields = std::move(fields)});
  };
  EXPECT_EQ(command({{"what", "exit"}}), "ana (achost-web) pressed the exit button by command");
  EXPECT_EQ(command({{"what", "enroll"}}), "ana (achost-web) began an enrollment for Ana (7)");
  EXPECT_EQ(command({{"what", "line"}, {"line", std::int64_t{3}}, {"value", std::int64_t{1}}}),
            "ana (achost-web) set line 3 to 1");
  EXPECT_EQ(command({{"what", "relay_test"}, {"relay", std::int64_t{2}}}), "ana (achost-web) tried relay 2");
  EXPECT_EQ(command({{"what", "borrow"}}), "ana (achost-web) borrowed the reader");
  EXPECT_EQ(command({{"what", "try_power"}, {"power", "21.00 dBm"}}), "ana (achost-web) tries powers, first 21.00 dBm");
  EXPECT_EQ(command({{"what", "restore"}}), "ana (achost-web) put a backup in place of what is stored");
  EXPECT_EQ(sentence({.kind = Kind::audit, .fields = {{"audit", std::int64_t{12}}, {"type", "config"}}}),
            "audit log record 12 (config)");
}

TEST(JournalLinesTest, ControlCharactersReachNoTerminal) {
  for (const auto& kind : kKinds) {
    Entry entry = {.kind = kind.kind, .user = 7};
    for (const char* name : {"outcome", "reason", "setting", "value", "previous_value", "by", "change", "name", "state",
                             "cause", "text", "version", "run_before", "type", "else"}) {
      entry.fields.emplace_back(name, "\x1b[2J\n");
    }
    auto style = diary();
    style.name_of = [](std::int64_t) { return std::string("\x1b[2J\n"); };
    const auto [who, what] = sentence_of(entry, style);
    EXPECT_EQ((who + what).find_first_of("\x1b\n"), std::string::npos) << kind.name << ": " << who << " " << what;
  }
}

TEST(JournalLinesTest, CardsAreMaskedUnlessTheyAreAskedFor) {
  auto style = diary();
  style.shows_cards = false;
  EXPECT_EQ(
      sentence_of({.kind = Kind::enrollment, .user = 7, .card = 1234567, .fields = {{"outcome", "done"}}}, style).what,
      "was given card ***4567");
}

TEST(JournalLinesTest, JsonHasAllOfAnEntry) {
  const auto object = nlohmann::json::parse(text_of(diary(JournalForm::json), {at(kMonday, kAnaComesIn, false)}));
  EXPECT_EQ(object, nlohmann::json({{"number", 5},
                                    {"time", "2025-11-24T08:02:11.000+01:00"},
                                    {"kind", "identification"},
                                    {"user", 7},
                                    {"card", 33},
                                    {"fields", {{"outcome", "opens"}}},
                                    {"clock_trusted", false},
                                    {"monotonic_ms", 17},
                                    {"boot", "b00"}}));
}

TEST(JournalLinesTest, NoCellOfCsvIsAFormula) {
  const auto text = text_of(
      diary(JournalForm::csv),
      {at(kMonday, {.kind = Kind::user_change, .user = 7, .fields = {{"change", "=1+1"}, {"by", "@SUM(A1)"}}})});
  EXPECT_EQ(text,
            "number,time,kind,user,card,text,fields,clock_trusted,monotonic_ms,boot\r\n"
            "5,2025-11-24T08:02:11.000+01:00,user_change,7,,'@SUM(A1) =1+1 Ana (7),"
            "\"{\"\"change\"\":\"\"=1+1\"\",\"\"by\"\":\"\"@SUM(A1)\"\"}\",1,17,b00\r\n");
}

}  // namespace
}  // namespace achost::test
