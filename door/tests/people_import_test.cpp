#include "door/services/people_import.h"
#include "door/services/schedule_text.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>

#include "door/base/failure.h"
#include "door/services/people_actions.h"
#include "refhost/tests/support.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class Import : public testing::Test {
 protected:
  Import() {
    users.put({.id = 7, .name = "Ana", .until = 5000});
    users.put({8, "Ben"});
    users.bind(33, 7, "r");
    users.bind(34, 8, "");
  }

  std::string import(const std::string& text, const ImportOptions& options = {}) {
    const auto outcome = import_people(users, parse_people(text, "f"), options);
    lines = outcome.lines;
    return outcome.text();
  }

  std::string stored() const { return people_as_text(users.people(), PeopleForm::csv); }

  TemporaryDirectory directory;
  UserStore users{directory.path(), UserStore::Access::read_write};
  std::vector<std::string> lines;
};

constexpr ImportOptions kReplace{.replace = true};
constexpr ImportOptions kMove{.move = true};

TEST_F(Import, AddsAndChangesThoseItNamesAndRemovesNobody) {
  EXPECT_EQ(
      import("id,name,card\n7,Anna,35\n9,Carl,36\n"),
      "users: 1 added, 1 changed, 0 removed, 1 as before; cards: 2 added, 0 changed, 0 moved, 0 removed, 2 as before");
  EXPECT_EQ(users.holder_of(35), (User{.id = 7, .name = "Anna", .until = 5000})) << "what has no column stays";
  EXPECT_EQ(users.owner_of(33), 7);
  EXPECT_EQ(users.owner_of(34), 8);
  EXPECT_EQ(users.holder_of(36), (User{9, "Carl"}));
}

TEST_F(Import, AScheduleThatIsNotThereIsRefusedWithItsLine) {
  const auto before = stored();
  EXPECT_EQ(failure_of([&] { import("id,schedule\n9,\n7,office\n"); }),
            "f:3: there is no schedule \"office\" for Ana (7): achost schedule list shows all");
  EXPECT_EQ(stored(), before);
  users.replace_schedules(parse_schedules("name,days,from,to\noffice,mon,08:00,09:00\n", "s"));
  import("id,schedule,pause\n7,office,5min\n");
  EXPECT_EQ(users.user(7)->schedule, "office");
  EXPECT_EQ(users.user(7)->pause, 300);
  import("id,name\n7,Anna\n");
  EXPECT_EQ(users.user(7)->schedule, "office");
  import("id,schedule,pause\n7,,\n", {.dry_run = true});
  EXPECT_THAT(lines, testing::ElementsAre(HasSubstr("change Anna (7), until ")));
  import("id,schedule,pause\n7,,\n");
  EXPECT_EQ(users.user(7)->schedule, "");
  EXPECT_EQ(users.user(7)->pause, 0);
}

TEST_F(Import, AnEmptyCellIsNothingAndAMissingColumnSaysNothing) {
  import("id,until\n7,\n");
  EXPECT_EQ(users.user(7), (User{7, "Ana"}));
}

TEST_F(Import, ACardOfTheSameUserKeepsWhatIsNotSaid) {
  const auto before = users.cards();
  EXPECT_THAT(import("id,card\n7,33\n"), HasSubstr("cards: 0 added, 0 changed, 0 moved, 0 removed, 2 as before"));
  EXPECT_EQ(users.cards(), before);
  EXPECT_THAT(import("id,card,registration\n7,33,s\n"), HasSubstr("cards: 0 added, 1 changed"));
  EXPECT_EQ(users.cards()[0].registration, "s");
  EXPECT_EQ(users.cards()[0].enrolled, before[0].enrolled);
}

TEST_F(Import, ACardOfAnotherUserIsRefusedUnlessItMayMove) {
  const auto before = stored();
  const std::string text = "id,name,card\n9,Carl,36\n7,Ana,34\n";
  EXPECT_EQ(failure_of([&] { import(text); }),
            "f:3: card 34 (0x22) is of Ben (8) already: remove it first, or let it move with --move");
  EXPECT_EQ(stored(), before) << "nothing of it is done";
  EXPECT_EQ(users.owner_of(36), std::nullopt);
  EXPECT_THAT(import(text, kMove), HasSubstr("cards: 1 added, 0 changed, 1 moved, 0 removed, 1 as before"));
  EXPECT_EQ(users.owner_of(34), 7);
}

TEST_F(Import, AUserWhoWouldBeWrongWithWhatIsStoredIsRefused) {
  EXPECT_THAT(failure_of([&] { import("id,from\n7,2026-01-01\n"); }),
              testing::StartsWith("f:2: Ana (7) would be valid"));
  EXPECT_EQ(users.user(7)->from, 0);
}

TEST_F(Import, ThatReplacesIsAllThereIs) {
  EXPECT_EQ(
      import("id,name,card\n7,Ana,34\n9,Carl,36\n", kReplace),
      "users: 1 added, 0 changed, 1 removed, 1 as before; cards: 1 added, 0 changed, 1 moved, 1 removed, 0 as before");
  EXPECT_THAT(users.users(), ElementsAre(User{.id = 7, .name = "Ana", .until = 5000}, User{9, "Carl"}));
  EXPECT_EQ(users.owner_of(33), std::nullopt);
  EXPECT_EQ(users.owner_of(34), 7) << "of a user who has gone";
}

TEST_F(Import, ADryRunTellsAndStoresNothing) {
  const auto before = stored();
  EXPECT_THAT(import("id,name,card\n7,Anna,34\n9,,36\n", {.replace = true, .dry_run = true}),
              testing::StartsWith("users: 1 added, 1 changed, 1 removed"));
  EXPECT_THAT(lines, ElementsAre(testing::MatchesRegex("change Anna \\(7\\), until 1970-01-01 .*"), "add user 9",
                                 "move card 34 (0x22) from Ben (8) to user 7", "add card 36 (0x24) of user 9",
                                 "remove card 33 (0x21) of Ana (7)", "remove Ben (8)"));
  EXPECT_EQ(stored(), before);
}

TEST_F(Import, OfAnExportChangesNothingAndElsewhereMakesTheSame) {
  users.put({.id = 9, .name = "=\"x\",\r\n'", .from = 1000, .until = 2000, .blocked = true});
  for (const auto form : {PeopleForm::csv, PeopleForm::json}) {
    const auto text = export_people(users, form).text;
    EXPECT_EQ(import(text, kReplace),
              "users: 0 added, 0 changed, 0 removed, 3 as before; cards: 0 added, 0 changed, 0 moved, 0 removed, 2 as "
              "before");
    const TemporaryDirectory elsewhere;
    UserStore other(elsewhere.path(), UserStore::Access::read_write);
    import_people(other, parse_people(text, "f"), {});
    EXPECT_EQ(other.people().users, users.people().users);
    EXPECT_EQ(other.people().cards, users.people().cards);
    EXPECT_THAT(UserStore::inspect(elsewhere.path()).faults, testing::IsEmpty());
  }
}

TEST_F(Import, MendsWhatIsDamagedWithoutBelievingIt) {
  SQLite::Database(directory.path() / "users.db", SQLite::OPEN_READWRITE)
      .exec("UPDATE users SET valid_until = 0 WHERE id = 7; UPDATE cards SET user = 8 WHERE value = 33");
  const auto exported = export_people(users, PeopleForm::csv);
  EXPECT_THAT(exported.warning, testing::StartsWith("2 damaged rows: "));
  EXPECT_THAT(exported.text, HasSubstr("\r\n7,Ana,,,,1,,,,\r\n")) << "blocked, and without the card";
  EXPECT_THAT(import("id,card\n7,33\n"), HasSubstr("users: 0 added, 1 changed"));
  EXPECT_EQ(users.holder_of(33), (User{.id = 7, .name = "Ana", .blocked = true}));
  EXPECT_THAT(UserStore::inspect(directory.path()).faults, testing::IsEmpty());
  EXPECT_EQ(export_people(users, PeopleForm::csv).warning, "");
}

TEST_F(Import, MendsADamagedRowThatIsAsItWouldBe) {
  users.put({.id = 9, .blocked = true});
  SQLite::Database(directory.path() / "users.db", SQLite::OPEN_READWRITE).exec("UPDATE users SET sum = 1 WHERE id = 9");
  EXPECT_THAT(import("id\n9\n"), HasSubstr("users: 0 added, 1 changed"));
  EXPECT_THAT(UserStore::inspect(directory.path()).faults, testing::IsEmpty());
}

class Actions : public Import {};

TEST_F(Actions, SayWhatTheyDid) {
  EXPECT_EQ(add_user(users, {.id = 9, .name = "Carl"}), "Carl (9) is added");
  EXPECT_EQ(put_user(users, {.id = 9, .name = "Carlo", .until = 1000 * 86'400'000LL}).substr(0, 39),
            "Carlo (9) is changed, until 1972-09-27 ");
  EXPECT_EQ(put_user(users, {.id = 10}), "user 10 is added");
  EXPECT_EQ(put_user(users, {.id = 10}), "user 10 is as before");
  users.replace_schedules(parse_schedules("name,days,from,to\noffice,mon,08:00,09:00\n", "s"));
  EXPECT_EQ(put_user(users, {.id = 10, .schedule = "office", .pause = 7200}),
            "user 10 is changed, in office, 2 h between entries");
  EXPECT_EQ(rename_user(users, 10, "Dora"), "user 10 is now Dora (10)");
  EXPECT_EQ(block_user(users, 10, true), "Dora (10) is blocked");
  EXPECT_EQ(block_user(users, 10, true), "Dora (10) is blocked, as before");
  EXPECT_EQ(block_user(users, 10, false), "Dora (10) is not blocked");
  EXPECT_EQ(add_card(users, 35, 8), "card 35 (0x23) is now of Ben (8)");
  EXPECT_EQ(add_card(users, 36, 11), "card 36 (0x24) is now of user 11, who is new");
  EXPECT_EQ(remove_card(users, 35), "card 35 (0x23) is taken from Ben (8)");
  EXPECT_EQ(remove_user(users, 8), "Ben (8) is removed, with 1 card");
}

TEST_F(Actions, ThatCannotBeDoneSayTheWayOutAndChangeNothing) {
  const auto before = stored();
  const std::pair<std::function<void()>, const char*> cases[] = {
      {[&] { add_user(users, {.id = 7}); }, "Ana (7) is there already: achost user put changes him"},
      {[&] { put_user(users, {.id = 7, .schedule = "off"}); },
       "there is no schedule \"off\" for Ana (7): achost schedule list shows all"},
      {[&] { put_user(users, {.id = 7, .pause = -1}); }, "a pause of -1 s: give 0 s to 366 d"},
      {[&] { add_user(users, {.id = 0}); }, "a user has a number of 1 or more, not 0"},
      {[&] { put_user(users, {.id = 7, .name = "\xFF"}); }, "a name that is no UTF-8: give it in UTF-8"},
      {[&] { put_user(users, {.id = 7, .name = std::string(257, 'a')}); }, "a name of 257 bytes: give 256 at most"},
      {[&] { rename_user(users, 9, "x"); }, "there is no user 9: achost user list shows all"},
      {[&] { block_user(users, 9, true); }, "there is no user 9: achost user list shows all"},
      {[&] { remove_user(users, 9); }, "there is no user 9: achost user list shows all"},
      {[&] { add_card(users, 33, 9); }, "card 33 (0x21) is of Ana (7) already: remove it first"},
      {[&] { remove_card(users, 35); }, "card 35 (0x23) is nobody's: achost card list shows all"},
  };
  for (const auto& [action, text] : cases) {
    EXPECT_EQ(failure_of(action), text);
  }
  EXPECT_EQ(stored(), before);
}

}  // namespace
}  // namespace achost::test
