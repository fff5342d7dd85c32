// Schedules as they are kept beside the users.
#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>

#include "door/services/schedule_text.h"
#include "door/services/user_store.h"
#include "refhost/database.h"
#include "refhost/tests/support.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h
namespace {

using Access = UserStore::Access;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const auto kSometime = std::chrono::system_clock::from_time_t(1'767'614'400);  // 2026-01-05 12:00 UTC, a Monday

Schedules some(const std::string& rows) { return parse_schedules("name,days,from,to\n" + rows, "f"); }

const char* const kAlways = "always,mon-sun holiday,00:00,24:00\n";
const char* const kTwo = "always,mon-sun holiday,00:00,24:00\nhardly,holiday,00:00,24:00\nx,1999-12-31,,\n";

class KeptSchedules : public testing::Test {
 protected:
  TemporaryDirectory directory;
  UserStore users{directory.path(), Access::read_write};

  void damage(const std::string& change) {
    SQLite::Database(directory.path() / "users.db", SQLite::OPEN_READWRITE).exec(change);
  }
};

TEST_F(KeptSchedules, AreKeptAsTheyWereGivenAndAnswerByName) {
  users.replace_schedules(some(kTwo));
  EXPECT_EQ(users.holds("always", kSometime), true);
  EXPECT_EQ(users.holds("hardly", kSometime), false);
  EXPECT_EQ(users.holds("other", kSometime), std::nullopt);
  EXPECT_EQ(*users.schedules(), some(kTwo));
  EXPECT_EQ(*UserStore(directory.path(), Access::read_only).schedules(), some(kTwo));
  const UserStore later(directory.path(), Access::read_write);
  EXPECT_EQ(*later.schedules(), some(kTwo));
}

TEST_F(KeptSchedules, TakeThePlaceOfAllThatWere) {
  users.replace_schedules(some(kTwo));
  users.replace_schedules(some("other,mon,08:00,09:00\n"));
  EXPECT_EQ(users.holds("always", kSometime), std::nullopt);
  EXPECT_EQ(*UserStore(directory.path(), Access::read_only).schedules(), some("other,mon,08:00,09:00\n"));
}

TEST_F(KeptSchedules, AUserGetsOneThatIsThere) {
  users.replace_schedules(some(kAlways));
  EXPECT_THAT(
      failure_of([&] { users.change_user({.id = 7, .name = "Ana", .schedule = "other"}, UserStore::Which::any); }),
      "there is no schedule \"other\" for Ana (7): achost schedule list shows all");
  EXPECT_THAT(users.users(), IsEmpty());
  users.change_user({.id = 7, .name = "Ana", .schedule = "always", .pause = 60}, UserStore::Which::any);
  users.bind(33, 7, "");
  const User ana{.id = 7, .name = "Ana", .schedule = "always", .pause = 60};
  EXPECT_EQ(users.holder_of(33), ana);
  EXPECT_EQ(UserStore(directory.path(), Access::read_write).holder_of(33), ana);
}

TEST_F(KeptSchedules, ThatAUserHasDoNotGo) {
  users.replace_schedules(some(kTwo));
  users.change_user({.id = 7, .name = "Ana", .schedule = "hardly"}, UserStore::Which::any);
  const auto* const way_out =
      "schedule hardly is that of Ana (7), and would go: give all who have it another first, such as --schedule none";
  EXPECT_EQ(failure_of([&] { users.remove_schedule("hardly"); }), way_out);
  EXPECT_EQ(failure_of([&] { users.replace_schedules(some(kAlways)); }), way_out);
  EXPECT_EQ(users.holds("hardly", kSometime), false);
  EXPECT_TRUE(users.remove_schedule("always"));
  EXPECT_FALSE(users.remove_schedule("always"));
  EXPECT_EQ(users.holds("always", kSometime), std::nullopt);
  users.change_user({.id = 7, .schedule = ""}, UserStore::Which::any);
  EXPECT_TRUE(users.remove_schedule("hardly"));
  EXPECT_THAT(UserStore(directory.path(), Access::read_only).schedules()->all, IsEmpty());
}

TEST_F(KeptSchedules, OneThatIsNotAsItWasStoredNeverHoldsAndIsTold) {
  users.replace_schedules(some(kAlways));
  users.change_user({.id = 7, .schedule = "always"}, UserStore::Which::any);
  users.bind(33, 7, "");
  for (const char* const change : {"days = 127", "opens = 1", "closes = 1439", "sum = NULL"}) {
    damage(std::string("UPDATE windows SET ") + change);
    UserStore later(directory.path(), Access::read_write);
    std::vector<std::string> told;
    later.on_damage([&](const std::string& text) { told.push_back(text); });
    EXPECT_EQ(later.holds("always", kSometime), false) << change;
    EXPECT_TRUE(later.holder_of(33).has_value());
    EXPECT_THAT(told, ElementsAre(HasSubstr("is not as it was stored, and never holds"))) << change;
    EXPECT_THAT(UserStore::inspect(directory.path()).faults,
                ElementsAre("schedule always is not as it was stored, and never holds: import the schedules again"));
    later.replace_schedules(some(kAlways));
    EXPECT_EQ(later.holds("always", kSometime), true);
  }
  damage("UPDATE windows SET schedule = 'alwayt'");
  EXPECT_THAT(UserStore::inspect(directory.path()).faults,
              ElementsAre(HasSubstr("schedule alwayt is not as"), "user 7 is in schedule always, which is not there"));
}

TEST_F(KeptSchedules, AHolidayThatIsNotAsItWasStoredIsTold) {
  users.replace_schedules(some(kTwo));
  users.change_user({.id = 7, .schedule = "always"}, UserStore::Which::any);
  users.bind(33, 7, "");
  damage("UPDATE holidays SET day = 20000");
  EXPECT_THAT(UserStore::inspect(directory.path()).faults,
              ElementsAre("holiday 2024-10-04 is not as it was stored: import the schedules again"));
  UserStore later(directory.path(), Access::read_write);
  std::vector<std::string> told;
  later.on_damage([&](const std::string& text) { told.push_back(text); });
  EXPECT_TRUE(later.holder_of(33).has_value());
  EXPECT_THAT(told, ElementsAre(HasSubstr("a holiday in ")));
}

TEST_F(KeptSchedules, AUsersRulesAreWithinHisChecksum) {
  users.replace_schedules(some(kTwo));
  users.change_user({.id = 7, .name = "Ana", .schedule = "hardly", .pause = 60}, UserStore::Which::any);
  users.bind(33, 7, "");
  for (const char* const change : {"schedule = ''", "schedule = 'always'", "pause = 0"}) {
    damage(std::string("UPDATE users SET ") + change);
    UserStore later(directory.path(), Access::read_write);
    EXPECT_EQ(later.holder_of(33), std::nullopt) << change;
    later.change_user({.id = 7, .blocked = false, .schedule = "hardly", .pause = 60}, UserStore::Which::any);
    EXPECT_TRUE(later.holder_of(33).has_value());
  }
}

TEST(KeptSchedulesOfOldFiles, AFileOfTheThirdVersionIsBroughtUpToDateAndWhatIsDamagedThereStaysSo) {
  const TemporaryDirectory directory;
  const refhost::DatabaseKind old{
      .noun = "user database",
      .version = 3,
      .schema =
          "CREATE TABLE users(id INTEGER PRIMARY KEY, name TEXT NOT NULL, sum INTEGER, valid_from INTEGER NOT "
          "NULL DEFAULT 0, valid_until INTEGER NOT NULL DEFAULT 0, blocked INTEGER NOT NULL DEFAULT 0);"
          "CREATE TABLE cards(value INTEGER PRIMARY KEY, user INTEGER NOT NULL REFERENCES users(id) ON DELETE "
          "CASCADE, registration TEXT NOT NULL, enrolled TEXT NOT NULL, sum INTEGER);"
          "CREATE INDEX cards_by_user ON cards(user)",
      .probe = "SELECT 1",
      .way_out = ""};
  refhost::open_database(directory.path() / "users.db", old)
      .exec(
          "INSERT INTO users VALUES(7, 'Ana', row_sum(7, 'Ana', 5, 9, 1), 5, 9, 1), (8, 'Ben', 1, 0, 0, 0);"
          "INSERT INTO cards VALUES(33, 7, 'r', '2026', row_sum(33, 7, 'r', '2026')), "
          "(34, 8, 'r', '2026', row_sum(34, 8, 'r', '2026'))");
  UserStore users(directory.path(), Access::read_write);
  EXPECT_EQ(users.holder_of(33), (User{.id = 7, .name = "Ana", .from = 5, .until = 9, .blocked = true}));
  EXPECT_EQ(users.holder_of(34), std::nullopt);
  users.replace_schedules(some(kAlways));
  EXPECT_THAT(UserStore::inspect(directory.path()).faults, ElementsAre(HasSubstr("user 8 is not as it was stored")));
}

}  // namespace
}  // namespace achost::test
