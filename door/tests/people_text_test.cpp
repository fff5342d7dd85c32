#include "door/services/people_text.h"

#include <gmock/gmock.h>
#include <stdlib.h>

#include <algorithm>
#include <ctime>
#include <limits>
#include <random>

#include "door/base/csv.h"
#include "door/base/failure.h"
#include "door/services/people_import.h"
#include "refhost/tests/support.h"

namespace achost {
namespace {

using refhost::test::failure_of;
using testing::ElementsAre;
using testing::StartsWith;

class PeopleText : public testing::Test {
 protected:
  PeopleText() {
    setenv("TZ", "XXX-2", 1);  // two hours east
    tzset();
  }
  ~PeopleText() override {
    unsetenv("TZ");
    tzset();
  }

  // What is stored, once it is imported where nothing is.
  static People imported(const std::string& text, std::optional<PeopleForm> form = {}) {
    People stored;
    stored.schedules = {"office", "=a, 'b"};
    auto change = plan_import(parse_people(text, "f", form), stored, {}, "now").first;
    std::ranges::sort(change.users, {}, &User::id);
    std::ranges::sort(change.cards, {}, &Card::value);
    return {.users = change.users, .cards = change.cards, .damaged_users = {}, .damaged_cards = {}};
  }

  static std::string failure(const std::string& text) {
    return failure_of([&] { parse_people(text, "f"); });
  }
};

TEST_F(PeopleText, ARowTellsOfAUserAndACard) {
  const auto people = imported("id,name,card\r\n7,\"Ana \xC3\xA7, \"\"x\"\"\",33\r\n8,Ben,0x22\r\n9,,\r\n");
  EXPECT_THAT(people.users, ElementsAre(User{7, "Ana \xC3\xA7, \"x\""}, User{8, "Ben"}, User{9, ""}));
  EXPECT_THAT(people.cards, ElementsAre(Card{33, 7, "", "now"}, Card{34, 8, "", "now"}));
}

TEST_F(PeopleText, ColumnsComeInAnyOrderAndMayBeMissing) {
  const auto people = imported(" card , id\n 33 , 7 \n");
  EXPECT_THAT(people.users, ElementsAre(User{7, ""}));
  EXPECT_THAT(people.cards, ElementsAre(Card{33, 7, "", "now"}));
  EXPECT_THAT(imported("until,id,from,blocked\n2026-01-31,7,2026-01-01,yes\n").users,
              ElementsAre(User{.id = 7, .from = 1767218400000, .until = 1769810400000 + 86'400'000, .blocked = true}));
}

TEST_F(PeopleText, ADayOfAnEndIsWithinAndATimeIsNot) {
  EXPECT_EQ(imported("id,until\n7,1970-01-02\n").users.at(0).until, (48 - 2) * 3'600'000);
  EXPECT_EQ(imported("id,until\n7,1970-01-02 00:00\n").users.at(0).until, (24 - 2) * 3'600'000);
}

TEST_F(PeopleText, ARowTellsOfAUsersRules) {
  EXPECT_THAT(imported("id,schedule,pause\n7, office ,90\n8,,1h 30min\n9,office,\n").users,
              ElementsAre(User{.id = 7, .schedule = "office", .pause = 90}, User{.id = 8, .pause = 5400},
                          User{.id = 9, .schedule = "office"}));
  EXPECT_THAT(imported("{\"id\":7,\"schedule\":\"office\",\"pause\":90}\n").users,
              ElementsAre(User{.id = 7, .schedule = "office", .pause = 90}));
}

TEST_F(PeopleText, LinesOfOneUserGiveSeveralCards) {
  const auto people = imported("id,name,card,blocked\n7,Ana,33,1\n8,Ben,35,\n7,,34,\n7,Ana,36,1\n");
  EXPECT_THAT(people.users, ElementsAre(User{.id = 7, .name = "Ana", .blocked = true}, User{8, "Ben"}));
  EXPECT_EQ(people.cards.size(), 4U);
}

TEST_F(PeopleText, AByteOrderMarkAndEitherLineEndAreTaken) {
  EXPECT_THAT(imported("\xEF\xBB\xBFid,name\r\n7,Ana\n").users, ElementsAre(User{7, "Ana"}));
  EXPECT_THAT(imported("\xEF\xBB\xBF{\"id\":7}\r\n\n{\"id\":8}").users, ElementsAre(User{7, ""}, User{8, ""}));
}

TEST_F(PeopleText, JsonHasTheSameKeysWithNumbersOrTexts) {
  const auto people = imported(
      "{\"id\":7,\"name\":\"A\\n\",\"card\":18446744073709551615,\"blocked\":true,\"from\":null,\"until\":\"\"}\n"
      "{\"id\":\"8\",\"card\":\"0x21\",\"registration\":\"r\",\"enrolled\":\"2026-01-02T03:04:05.006+02:00\"}\n");
  EXPECT_THAT(people.users, ElementsAre(User{.id = 7, .name = "A\n", .blocked = true}, User{8, ""}));
  EXPECT_THAT(people.cards, ElementsAre(Card{33, 8, "r", "2026-01-02T03:04:05.006+02:00"},
                                        Card{std::numeric_limits<std::uint64_t>::max(), 7, "", "now"}));
}

TEST_F(PeopleText, AFormThatIsAskedForIsTheForm) {
  EXPECT_THROW(imported("id\n7\n", PeopleForm::json), Failure);
  EXPECT_THROW(imported("{\"id\":7}", PeopleForm::csv), Failure);
  EXPECT_EQ(people_form("csv"), PeopleForm::csv);
  EXPECT_EQ(people_form("jsonl"), PeopleForm::json);
  EXPECT_EQ(people_form(""), std::nullopt);
}

TEST_F(PeopleText, WhatIsWrongIsSaidWithItsLineAndTheWayOut) {
  const std::pair<std::string, std::string> cases[] = {
      {"", "f:1: there is nothing: give a line with the names of the columns first, such as id,name,card"},
      {"id;name\n",
       "f:1: there is no column \"id;name\": the first line names the columns, separated by commas, of id,"},
      {"id,id\n", "f:1: the column \"id\" is there twice: give it once"},
      {"name,card\n", "f:1: there is no column id: "},
      {"id,name\n7\n", "f:2: 1 cells for 2 columns: "},
      {"id,name\n7,a\"b\n", "f:2: a quote inside a cell"},
      {"id,name\n7,\"a\n", "f:2: the quotes of a cell that begins here do not end"},
      {"id\n0\n", "f:2: \"0\" is no user: give a number of 1 or more as id"},
      {"id,name\n,Ana\n", "f:2: \"\" is no user"},
      {"id\n7x\n", "f:2: \"7x\" is no user"},
      {"id,name\n7,A\xFF\n", "f:2: this is no UTF-8: save the file as UTF-8"},
      {"id,card\n7,-1\n", "f:2: \"-1\" is no card: give a number such as 33 or 0x21"},
      {"id,card\n7,18446744073709551616\n", "f:2: \"18446744073709551616\" is no card"},
      {"id,card\n7,33\n\n8,0x21\n", "f:4: card 33 is given to user 7 in line 2 already: give each card once"},
      {"id,name\n7,Ana\n7,Ben\n", "f:3: user 7 has another name in line 2: "},
      {"id,until\n7,\n7,2026-01-01\n", "f:3: user 7 has another until in line 2: "},
      {"id,from\n7,soon\n", "f:2: \"soon\" is no time: give 2026-01-31"},
      {"id,from\n7,1960-01-01\n", "f:2: \"1960-01-01\" is before 1970: give a later time, or nothing for no limit"},
      {"id,from,until\n7,2026-01-02,2026-01-01\n", "f:2: user 7 would be valid from 2026-01-02 00:00 until 2026-01-02"},
      {"id,blocked\n7,maybe\n", "f:2: blocked cannot be \"maybe\": give 1 or 0"},
      {"id,pause\n7,soon\n", "f:2: \"soon\" is no length of time: give 90, 90s, 5min, 8h"},
      {"id,pause\n7,367d\n", "f:2: a pause of 31708800 s: give 0 s to 366 d"},
      {"id,pause\n7,5m\n7,6m\n", "f:3: user 7 has another pause in line 2: "},
      {"id,schedule\n7,a\n7,b\n", "f:3: user 7 has another schedule in line 2: "},
      {"id,card,enrolled\n7,33,once\n", "f:2: \"once\" is no time"},
      {"id,name\n7," + std::string(257, 'a') + "\n", "f:2: a name of 257 bytes: give 256 at most"},
      {"id,card,registration\n7,1," + std::string(257, 'a') + "\n", "f:2: a registration of 257 bytes: give 256"},
      {"{\"id\":7}\n{\"id\":\n", "f:2: this is no JSON object: give one a line, such as {"},
      {"{\"id\":7}\n[]\n", "f:2: this is no JSON object"},
      {"{\"id\":7,\"nam\":\"\"}\n", "f:1: there is no key \"nam\": there are id, name, card"},
      {"{\"id\":7.5}\n", "f:1: id cannot be 7.5: give a text or a whole number"},
      {"{\"name\":\"a\"}\n", "f:1: \"\" is no user"},
      {"{\"id\":" + std::string(500'000, '[') + std::string(500'000, ']') + "}\n", "f:1: id cannot be a list: give a"},
  };
  for (const auto& [text, expected] : cases) {
    EXPECT_THAT(failure(text), StartsWith(expected)) << text;
    EXPECT_EQ(failure(text).find('\n'), std::string::npos) << text;
  }
}

// Users with names that are hard on every form.
People difficult_people(unsigned seed) {
  const std::string pieces[] = {"",         "'",
                                "=",        "+",
                                "-",        "@",
                                "\t",       "\r",
                                "\n",       "\"",
                                ",",        "\\n",
                                " ",        "A",
                                "\xC3\xA7", "{",
                                "#",        "\xF0\x9F\x9A\xAA",
                                "0",        std::string(1, '\0')};
  std::mt19937 random(seed);
  const auto text = [&] {
    std::string all;
    for (auto count = random() % 6; count > 0; --count) {
      all += pieces[random() % std::size(pieces)];
    }
    return all;
  };
  People people;
  std::uint64_t card = 0;
  for (std::int64_t id = 1; id < 40; id += 1 + static_cast<std::int64_t>(random() % 3)) {
    people.users.push_back({.id = id, .name = text(), .blocked = random() % 4 == 0});
    people.users.back().schedule = random() % 2 == 0 ? "" : "=a, 'b";
    people.users.back().pause = random() % 2 == 0 ? 0 : static_cast<std::int64_t>(random() % 100'000);
    people.users.back().from = random() % 2 == 0 ? 0 : 1 + static_cast<std::int64_t>(random());
    people.users.back().until = random() % 2 == 0 ? 0 : 10'000'000'000 + static_cast<std::int64_t>(random());
    for (auto count = random() % 3; count > 0; --count) {
      card += 1 + (std::uint64_t{random()} << 24U);
      people.cards.push_back(
          {.value = card, .user = id, .registration = text(), .enrolled = "2026-01-02T03:04:05.006+01:00"});
    }
  }
  people.users.push_back({.id = std::numeric_limits<std::int64_t>::max(), .name = "last"});
  people.cards.push_back({std::numeric_limits<std::uint64_t>::max(), 1, "", "2026-01-02T03:04:05.006+01:00"});
  return people;
}

TEST_F(PeopleText, WhatIsWrittenInEitherFormIsReadAsItWas) {
  for (const auto form : {PeopleForm::csv, PeopleForm::json}) {
    for (unsigned seed = 0; seed < 200; ++seed) {
      const auto people = difficult_people(seed);
      const auto text = people_as_text(people, form);
      const auto again = imported(text);
      ASSERT_EQ(again.users, people.users) << text;
      ASSERT_EQ(again.cards, people.cards) << text;
      ASSERT_EQ(people_as_text(again, form), text);
    }
  }
}

TEST_F(PeopleText, NoCellOfTheCsvIsAFormula) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    const auto text = people_as_text(difficult_people(seed), PeopleForm::csv);
    CsvReader reader(text);
    for (std::vector<std::string> cells; reader.next(cells);) {
      for (const auto& cell : cells) {
        ASSERT_EQ(std::string("=+-@\t\r\n").find(cell.substr(0, 1).append(cell.empty() ? "x" : "")), std::string::npos)
            << cell;
      }
    }
  }
}

TEST_F(PeopleText, TheCsvHasAHeadingAndARowForEachCard) {
  const People people{
      .users = {{.id = 7, .name = "=A", .from = 1000, .pause = 300}, {.id = 8, .name = "B\"", .schedule = "office"}},
      .cards = {{33, 7, "r", "t"}, {34, 7, "", "t"}},
      .damaged_users = {},
      .damaged_cards = {}};
  EXPECT_EQ(people_as_text(people, PeopleForm::csv),
            "id,name,card,from,until,blocked,schedule,pause,registration,enrolled\r\n"
            "7,'=A,33,1970-01-01T02:00:01.000+02:00,,0,,5 min,r,t\r\n"
            "7,'=A,34,1970-01-01T02:00:01.000+02:00,,0,,5 min,,t\r\n"
            "8,\"B\"\"\",,,,0,office,,,\r\n");
}

}  // namespace
}  // namespace achost
