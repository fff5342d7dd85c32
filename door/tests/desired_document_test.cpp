// The text of what a door is to be like.
#include <gmock/gmock.h>

#include "door/base/failure.h"
#include "door/services/desired_document.h"
#include "refhost/tests/support.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h
namespace {

using Form = DesiredReader::Form;
using testing::ElementsAre;
using testing::FieldsAre;
using testing::HasSubstr;
using testing::StartsWith;

DesiredDocument document(const std::string& text, Form form = Form::whole, std::size_t piece = 1 << 20) {
  DesiredReader reader("f", form);
  for (std::size_t at = 0; at < text.size(); at += piece) {
    reader.take(std::string_view(text).substr(at, piece));
  }
  return std::move(reader).result();
}

std::string fault(const std::string& text, Form form = Form::whole) {
  return failure_of([&] { document(text, form); });
}

const std::string kOfAllKinds =
    "{\"user\": 8, \"cards\": [45, \"0x2c\"]}\r\n\n"
    "{\"user\": 7, \"name\": \"Ana\", \"from\": 5, \"until\": 9, \"blocked\": true, \"schedule\": \"office\", "
    "\"pause\": 60, \"cards\": [\"18446744073709551615\"]}\n"
    "{\"schedule\": \"office\", \"days\": \"mon-fri\", \"from\": \"08:00\", \"to\": \"18:00\"}\n"
    "{\"schedule\": \"\", \"days\": \"2026-12-25\", \"from\": \"\", \"to\": \"\"}\n"
    "{\"setting\": \"uhf.read_interval\", \"value\": \"900\"}";

TEST(DesiredDocument, IsReadInAnyPieces) {
  for (const std::size_t piece : {1UL, 7UL, 1UL << 20}) {
    const auto read = document(kOfAllKinds, Form::whole, piece);
    ASSERT_EQ(read.users.size(), 2U);
    EXPECT_EQ(
        read.users[0].user,
        (User{.id = 7, .name = "Ana", .from = 5, .until = 9, .blocked = true, .schedule = "office", .pause = 60}));
    EXPECT_EQ(read.users[0].line, 3U);
    EXPECT_EQ(read.users[1].user, User{.id = 8}) << "what is left out he has not";
    EXPECT_THAT(read.cards, ElementsAre(FieldsAre(44, 8), FieldsAre(45, 8), FieldsAre(UINT64_MAX, 7)));
    EXPECT_EQ(schedules_as_text(*read.schedules),
              "name,days,from,to\r\noffice,mon-fri,08:00,18:00\r\n,2026-12-25,,\r\n");
    EXPECT_THAT(read.settings, ElementsAre(FieldsAre("uhf", "read_interval", "900")));
  }
}

TEST(DesiredDocument, SaysOfSchedulesAllOrNothing) {
  for (const Form form : {Form::whole, Form::difference}) {
    EXPECT_FALSE(document("{\"user\": 7}", form).schedules.has_value());
    EXPECT_EQ(document("{\"user\": 7}\n{\"remove_schedules\": true}", form).schedules, Schedules());
  }
}

TEST(DesiredDocument, RemovesEverybodyOnlyWhereItSaysSo) {
  for (const char* const text : {"", "{\"setting\": \"uhf.read_interval\", \"value\": \"900\"}\n"}) {
    EXPECT_EQ(fault(text),
              "f: it names no user, and all who are there would go: where this is meant say {\"remove_users\": true}");
  }
  EXPECT_TRUE(document("{\"remove_users\": true}").users.empty());
  EXPECT_EQ(fault("{\"remove_users\": true}\n{\"user\": 7}"), "f: it names users and removes all: do either");
  EXPECT_THAT(fault("{\"remove_users\": true}", Form::difference), StartsWith("f:1: this is about nothing"));
  EXPECT_TRUE(document("", Form::difference).users.empty());
}

TEST(DesiredDocument, ThatWasCutOffIsRefusedWhereItSaysHowManyLinesItHas) {
  const std::string whole = "{\"lines\": 3}\n{\"user\": 7}\n\n{\"user\": 8}\n{\"user\": 9}\n";
  for (const Form form : {Form::whole, Form::difference}) {
    EXPECT_EQ(document(whole, form).users.size(), 3U);
    EXPECT_EQ(fault(whole.substr(0, whole.size() - 12), form),
              "f:4: here it ends, after 2 lines of 3: take it from where it is whole");
    EXPECT_EQ(fault(whole + "{\"user\": 10}", form),
              "f:6: here it ends, after 4 lines of 3: take it from where it is whole");
  }
  EXPECT_EQ(fault("{\"user\": 7}\n{\"lines\": 1}"),
            "f:2: how many lines there are stands in the first line, or nowhere");
  EXPECT_EQ(fault("{\"lines\": 1}\n{\"lines\": 1}\n{\"user\": 7}"),
            "f:2: how many lines there are stands in the first line, or nowhere");
  EXPECT_THAT(fault("{\"lines\": -1}\n{\"user\": 7}"), StartsWith("f:1: lines cannot be -1: "));
}

TEST(DesiredDocument, ADifferenceMayRemove) {
  const auto read =
      document("{\"remove_user\": 9}\n{\"remove_user\": 8}\n{\"remove_setting\": \"uhf.region\"}\n", Form::difference);
  EXPECT_THAT(read.users_removed, ElementsAre(8, 9));
  EXPECT_THAT(read.settings_removed, ElementsAre(FieldsAre("uhf", "region", "")));
  EXPECT_EQ(fault("{\"remove_user\": 9}"),
            "f:1: this is about nothing: a line has \"user\", \"schedule\" or \"setting\", or alone "
            "\"remove_users\" or \"remove_schedules\"");
}

TEST(DesiredDocument, AnErrorNamesTheLineAndTheThing) {
  const std::pair<const char*, const char*> kFaults[] = {
      {"\n[]", "f:2: this is no JSON object: give one a line, such as {\"user\": 7"},
      {"{\"user\": 7", "f:1: this is no JSON object"},
      {"{\"user\": 0}", "f:1: user cannot be 0: give a number of 1 or more"},
      {"{\"user\": \"7\"}", "f:1: user cannot be \"7\": give a whole number of 0 or more"},
      {"{\"user\": 18446744073709551615}", "f:1: user cannot be 18446744073709551615: give a whole number"},
      {"{\"user\": 7, \"from\": -1}", "f:1: from cannot be -1: give a whole number of 0 or more"},
      {"{\"user\": 7, \"from\": 9, \"until\": 5}", "f:1: "},
      {"{\"user\": 7, \"blocked\": 1}", "f:1: blocked cannot be 1: give true or false"},
      {"{\"user\": 7, \"cards\": 33}", "f:1: cards cannot be 33: give a list, such as [\"33\"]"},
      {"{\"user\": 7, \"cards\": [\"x\"]}", "f:1: a card cannot be \"x\": give a number such as 33 or \"0x21\""},
      {"{\"user\": 7, \"nam\": \"A\"}",
       "f:1: there is no key \"nam\" here: there are blocked, cards, from, name, pause, schedule, until, user"},
      {"{\"user\": 7}\n{\"user\": 8}\n{\"user\": 7}", "f:3: user 7 is in line 1 already: give each user once"},
      {"{\"user\": 7, \"cards\": [\"33\"]}\n{\"user\": 8, \"cards\": [\"0x21\"]}",
       "f:2: card 33 is given to user 7 in line 1 already: give each card once"},
      {"{\"user\": 7, \"cards\": [33, 33]}", "f:1: card 33 is given to user 7 in line 1 already: give each card once"},
      {"{\"schedule\": \"a\", \"days\": \"someday\", \"from\": \"08:00\", \"to\": \"09:00\"}",
       "f:1: \"someday\" is no day: "},
      {"{\"setting\": \"uhf.read_intervall\", \"value\": \"1\"}", "f:1: "},
      {"{\"setting\": \"uhf.read_interval\", \"value\": \"soon\"}", "f:1: "},
      {"{\"setting\": \"uhf.read_interval\"}", "f:1: a setting without \"value\""},
      {"{\"setting\": \"uhf.read_interval\", \"value\": \"1\"}\n{\"setting\": \"read_interval\", \"value\": \"2\"}",
       "f: setting uhf.read_interval is given twice: give it once"},
      {"{\"name\": \"Ana\"}", "f:1: this is about nothing"},
      {"{\"user\": 7, \"name\": \"\xff\"}", "f:1: this is no JSON object"}};
  for (const auto& [text, said] : kFaults) {
    EXPECT_THAT(fault(text), StartsWith(said)) << text;
  }
  EXPECT_EQ(fault("{\"user\": 7}\n{\"remove_user\": 7}", Form::difference),
            "f:1: user 7 is removed too: either give or remove him");
}

// Writing it out would go as deep as it does.
TEST(DesiredDocument, WhatIsNestedHoweverDeepIsRefusedAsWhatItIs) {
  EXPECT_THAT(fault("{\"user\": {\"id\": 7}}"), StartsWith("f:1: user cannot be an object: give a whole number"));
  constexpr std::size_t kDeep = 500'000;
  EXPECT_THAT(fault("{\"user\": " + std::string(kDeep, '[') + std::string(kDeep, ']') + "}"),
              StartsWith("f:1: user cannot be a list: give a whole number"));
}

TEST(DesiredDocument, ALineWithoutAnEndIsRefusedBeforeItTakesMemory) {
  DesiredReader reader("f", Form::whole);
  EXPECT_THAT(failure_of([&] {
                for (int i = 0; i < 100; ++i) {
                  reader.take(std::string(100'000, ' '));
                }
              }),
              HasSubstr("f:1: a line of more than 1 MiB"));
}

}  // namespace
}  // namespace achost::test
