#include "door/services/user_store.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>
#include <stdlib.h>

#include <chrono>
#include <ctime>
#include <limits>
#include <thread>

#include "ac/exception.h"
#include "refhost/database.h"
#include "refhost/store_watch.h"
#include "refhost/tests/support.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h
namespace {

class Users : public testing::Test {
 protected:
  TemporaryDirectory directory;
  UserStore users{directory.path(), UserStore::Access::read_write};
};

constexpr std::uint64_t kHighest = std::numeric_limits<std::uint64_t>::max();

TEST_F(Users, ABoundCardHasItsOwner) {
  EXPECT_EQ(users.owner_of(33), std::nullopt);
  EXPECT_TRUE(users.bind(33, 7, "r"));
  EXPECT_TRUE(users.bind(kHighest, 8, ""));
  EXPECT_EQ(users.owner_of(33), 7);
  EXPECT_EQ(users.owner_of(kHighest), 8);
  EXPECT_EQ(users.users(), std::vector<User>({{7, ""}, {8, ""}}));
}

TEST_F(Users, ACardHasOneOwner) {
  users.bind(33, 7, "");
  EXPECT_FALSE(users.bind(33, 8, ""));
  EXPECT_FALSE(users.bind(33, 7, ""));
  EXPECT_EQ(users.owner_of(33), 7);
  EXPECT_EQ(users.users().size(), 1U) << "nobody is made for a card that is refused";
}

TEST_F(Users, AUserKeepsHisCardsWhenRenamed) {
  users.put({7, "Ana"});
  users.bind(33, 7, "");
  users.put({7, "Ana Maria 'x'"});
  EXPECT_EQ(users.users(), std::vector<User>({{7, "Ana Maria 'x'"}}));
  EXPECT_EQ(users.owner_of(33), 7);
}

std::vector<std::int64_t> numbers_of(const FoundPeople& found) {
  std::vector<std::int64_t> numbers;
  for (const auto& one : found.users) {
    numbers.push_back(one.user.id);
  }
  return numbers;
}

TEST_F(Users, AreFoundByNameByNumberAndByCard) {
  users.put({7, "Ana"});
  users.put({8, "100 % Anatol"});
  users.bind(9, 33, "");
  users.bind(kHighest, 34, "r");
  EXPECT_EQ(numbers_of(users.find({})), (std::vector<std::int64_t>{7, 8, 33, 34}));
  EXPECT_EQ(numbers_of(users.find({.text = "aNa"})), (std::vector<std::int64_t>{7, 8}));
  EXPECT_EQ(numbers_of(users.find({.text = "%"})), (std::vector<std::int64_t>{8}));
  EXPECT_EQ(numbers_of(users.find({.text = "7"})), (std::vector<std::int64_t>{7}));
  EXPECT_EQ(numbers_of(users.find({.text = "0x9"})), (std::vector<std::int64_t>{33}));
  EXPECT_EQ(numbers_of(users.find({.text = std::to_string(kHighest)})), (std::vector<std::int64_t>{34}));
  EXPECT_TRUE(users.find({.text = "nobody"}).users.empty());
}

TEST_F(Users, AreFoundInParts) {
  for (int id = 1; id <= 5; ++id) {
    users.put({id, ""});
  }
  const auto first = users.find({.most = 3});
  EXPECT_EQ(numbers_of(first), (std::vector<std::int64_t>{1, 2, 3}));
  EXPECT_TRUE(first.more);
  EXPECT_EQ(first.all_users, 5);
  const auto rest = users.find({.after = 3, .most = 2});
  EXPECT_EQ(numbers_of(rest), (std::vector<std::int64_t>{4, 5}));
  EXPECT_FALSE(rest.more);
}

TEST_F(Users, WhoIsFoundHasTheFirstOfHisCardsAndTheOneThatWasLookedFor) {
  for (std::uint64_t card = 100; card < 150; ++card) {
    users.bind(card, 7, "");
  }
  const auto found = users.find({.text = "149"}).users.at(0);
  EXPECT_EQ(found.cards, 50);
  ASSERT_EQ(found.first.size(), FoundPeople::kMostCards);
  EXPECT_EQ(found.first[0].value, 149U);
  EXPECT_EQ(found.first[1].value, 100U);
}

TEST_F(Users, CardsGoWithTheirUser) {
  users.bind(33, 7, "");
  users.bind(34, 8, "");
  EXPECT_TRUE(users.remove_user(7));
  EXPECT_FALSE(users.remove_user(7));
  EXPECT_EQ(users.owner_of(33), std::nullopt);
  EXPECT_EQ(users.owner_of(34), 8);
}

TEST_F(Users, ACardCanBeTakenAway) {
  users.bind(kHighest, 7, "");
  EXPECT_TRUE(users.remove_card(kHighest));
  EXPECT_FALSE(users.remove_card(kHighest));
  EXPECT_EQ(users.users().size(), 1U);
}

TEST_F(Users, ListsAreInTheOrderOfTheirNumbers) {
  for (const std::uint64_t card : {kHighest, std::uint64_t{5}, std::uint64_t{1} << 63U, std::uint64_t{1}}) {
    users.bind(card, 7, "r-" + std::to_string(card));
  }
  std::vector<std::uint64_t> order;
  for (const Card& card : users.cards()) {
    order.push_back(card.value);
    EXPECT_EQ(card.registration, "r-" + std::to_string(card.value));
    EXPECT_THAT(card.enrolled, testing::MatchesRegex("[0-9-]{10}T[0-9:]{8}\\.[0-9]{3}[+-][0-9]{2}:[0-9]{2}"));
  }
  EXPECT_EQ(order, std::vector<std::uint64_t>({1, 5, std::uint64_t{1} << 63U, kHighest}));
}

TEST_F(Users, WhoReadsTheFileSeesThemAtOnce) {
  const UserStore reader(directory.path(), UserStore::Access::read_only);
  users.bind(33, 7, "");
  EXPECT_EQ(reader.owner_of(33), 7);
  users.remove_card(33);
  EXPECT_EQ(reader.owner_of(33), std::nullopt);
  EXPECT_EQ(reader.users().size(), 1U);
}

TEST_F(Users, AreCountedWithTheirCards) {
  users.bind(33, 7, "");
  users.bind(34, 7, "");
  users.put({8, "Ana"});
  const std::vector<std::pair<User, std::int64_t>> expected = {{{7, ""}, 2}, {{8, "Ana"}, 0}};
  EXPECT_EQ(users.users_with_cards(), expected);
}

TEST_F(Users, AnEnrollmentThatAnOlderHostStoredWithoutAZoneGetsThatOfItsDay) {
  setenv("TZ", "XXX-2YYY,M3.5.0,M10.5.0", 1);  // two hours east, three in summer
  tzset();
  SQLite::Database(directory.path() / "users.db", SQLite::OPEN_READWRITE)
      .exec(
          "INSERT INTO users(id, name) VALUES(7, ''); "
          "INSERT INTO cards(value, user, registration, enrolled) VALUES(1, 7, '', '2026-01-02 03:04:05'), "
          "(2, 7, '', '2026-07-02 03:04:05'), (3, 7, '', 'once')");
  const auto cards = users.cards();
  unsetenv("TZ");
  tzset();
  EXPECT_EQ(cards[0].enrolled, "2026-01-02T03:04:05.000+02:00");
  EXPECT_EQ(cards[1].enrolled, "2026-07-02T03:04:05.000+03:00");
  EXPECT_EQ(cards[2].enrolled, "once");
}

TEST_F(Users, AUserIsKeptWithHisTimesAndWhetherHeIsBlocked) {
  const User ana{.id = 7, .name = "Ana", .from = 1000, .until = 2000, .blocked = true};
  users.put(ana);
  users.bind(33, 7, "");
  EXPECT_EQ(users.user(7), ana);
  EXPECT_EQ(users.holder_of(33), ana);
  UserStore other(directory.path(), UserStore::Access::read_only);
  EXPECT_EQ(other.holder_of(33), ana) << "who has not loaded them yet";
}

TEST_F(Users, AChangeTouchesWhatItNamesAlone) {
  using Which = UserStore::Which;
  EXPECT_FALSE(users.change_user({.id = 7, .name = "Ana"}, Which::there).has_value());
  EXPECT_EQ(users.change_user({.id = 7, .name = "Ana", .until = 2000}, Which::missing)->before, std::nullopt);
  EXPECT_FALSE(users.change_user({.id = 7}, Which::missing).has_value());
  users.bind(33, 7, "");
  const auto changed = users.change_user({.id = 7, .blocked = true}, Which::any);
  EXPECT_EQ(changed->before, (User{.id = 7, .name = "Ana", .until = 2000}));
  EXPECT_EQ(changed->after, (User{.id = 7, .name = "Ana", .until = 2000, .blocked = true}));
  EXPECT_EQ(users.holder_of(33), changed->after);
}

TEST_F(Users, AChangeThatMakesAUserWrongIsRefusedAndChangesNothing) {
  users.put({.id = 7, .from = 1000});
  EXPECT_THROW(users.change_user({.id = 7, .name = "Ana", .until = 1000}, UserStore::Which::any), ac::ac_exception);
  EXPECT_EQ(users.user(7), (User{.id = 7, .from = 1000}));
}

TEST_F(Users, WhoIsRemovedIsToldWithHisCards) {
  users.put({7, "Ana"});
  users.bind(33, 7, "r");
  users.bind(34, 7, "");
  const auto card = users.remove_card(33);
  EXPECT_EQ(card->user, 7);
  EXPECT_EQ(card->registration, "r");
  const auto removed = users.remove_user(7);
  EXPECT_EQ(removed->user.name, "Ana");
  EXPECT_EQ(removed->cards.size(), 1U);
  EXPECT_EQ(users.owner_of(34), std::nullopt);
}

TEST_F(Users, AllAreChangedAtOnceOrNobody) {
  users.bind(33, 7, "");
  users.bind(34, 8, "");
  const auto change = [](const People& people) {
    EXPECT_EQ(people.users.size(), 2U);
    EXPECT_EQ(people.cards.size(), 2U);
    return PeopleChange{.cards_removed = {33},
                        .users_removed = {8},
                        .users = {{9, "Ben"}},
                        .cards = {{.value = 34, .user = 9}, {.value = 35, .user = 7}}};
  };
  EXPECT_THROW(users.change_all([&](const People& people) -> PeopleChange {
    change(people);
    throw std::runtime_error("no");
  }),
               std::runtime_error);
  EXPECT_EQ(users.owner_of(33), 7);
  users.change_all(change);
  EXPECT_EQ(users.owner_of(33), std::nullopt);
  EXPECT_EQ(users.holder_of(34), (User{9, "Ben"}));
  EXPECT_EQ(users.owner_of(35), 7);
  EXPECT_EQ(users.users(), std::vector<User>({{7, ""}, {9, "Ben"}}));
}

TEST_F(Users, AChangeOfAllThatTheFileRefusesChangesNothing) {
  users.bind(33, 7, "");
  EXPECT_THROW(users.change_all([](const People&) {
    return PeopleChange{.cards_removed = {33}, .users_removed = {}, .users = {}, .cards = {{.value = 34, .user = 9}}};
  }),
               ac::ac_exception)
      << "there is no user 9";
  EXPECT_EQ(users.owner_of(33), 7);
  EXPECT_EQ(users.owner_of(34), std::nullopt);
}

// From memory: the writer has the database.
TEST_F(Users, WhoAsksForACardOrANameWaitsForNobodysWriting) {
  users.put({.id = 7, .name = "Ana"});
  users.bind(33, 7, "");
  SQLite::Database other(directory.path() / "users.db", SQLite::OPEN_READWRITE);
  other.exec("BEGIN IMMEDIATE");  // whoever writes waits for it, up to two seconds
  std::jthread writer([this] { EXPECT_TRUE(users.bind(34, 7, "")); });
  using refhost::StoreTable;
  while (!StoreTable::instance().longest_stall(StoreTable::Clock::now(), std::chrono::milliseconds(1))) {
    std::this_thread::yield();
  }
  EXPECT_EQ(users.owner_of(33), 7);
  EXPECT_EQ(users.name_of(7), "Ana");
  EXPECT_EQ(users.name_of(8), "");
  EXPECT_TRUE(StoreTable::instance().longest_stall(StoreTable::Clock::now(), std::chrono::milliseconds(1)).has_value())
      << "it waits still";
  other.exec("ROLLBACK");
  writer.join();
  EXPECT_EQ(users.owner_of(34), 7);
}

TEST_F(Users, ManyThreadsMayCall) {
  {
    std::vector<std::jthread> threads;
    for (std::uint64_t thread = 0; thread < 4; ++thread) {
      threads.emplace_back([this, thread] {
        for (std::uint64_t i = 0; i < 10; ++i) {
          users.bind(thread * 100 + i, 7, "");
          EXPECT_EQ(users.owner_of(thread * 100 + i), 7);
        }
      });
    }
  }
  EXPECT_EQ(users.cards().size(), 40U);
}

// Each as one flipped bit makes it, which SQLite does not see.
TEST_F(Users, ACardThatIsNotAsItWasStoredIsNobodysAndSaid) {
  users.bind(33, 7, "r");
  users.bind(34, 8, "r");
  for (const char* change : {"user = 8 WHERE value = 33", "registration = 's' WHERE value = 33",
                             "enrolled = '3' || substr(enrolled, 2) WHERE value = 33", "sum = sum + 1 WHERE value = 33",
                             "sum = NULL WHERE value = 33"}) {
    SQLite::Database(directory.path() / "users.db", SQLite::OPEN_READWRITE)
        .exec(std::string("UPDATE cards SET ") + change);
    UserStore later(directory.path(), UserStore::Access::read_write);
    std::vector<std::string> told;
    later.on_damage([&](const std::string& text) { told.push_back(text); });
    EXPECT_EQ(later.owner_of(33), std::nullopt) << change;
    EXPECT_EQ(later.owner_of(34), 8);
    ASSERT_EQ(told.size(), 1U) << change;
    EXPECT_THAT(told[0], testing::HasSubstr("users.db is not as it was stored, and opens nothing"));
    EXPECT_THAT(
        UserStore::inspect(directory.path()).faults,
        testing::ElementsAre("card 33 is not as it was stored, and opens nothing: remove it and enroll it again"));
    later.remove_card(33);
    later.bind(33, 7, "r");
    EXPECT_EQ(later.owner_of(33), 7);
    EXPECT_THAT(UserStore::inspect(directory.path()).faults, testing::IsEmpty());
  }
}

TEST_F(Users, AUserOrCardWithAnotherNumberThanWasStoredIsFound) {
  users.bind(33, 7, "r");
  SQLite::Database other(directory.path() / "users.db", SQLite::OPEN_READWRITE);
  other.exec("UPDATE cards SET value = 32");
  EXPECT_EQ(users.owner_of(32), std::nullopt);
  other.exec("UPDATE users SET id = 6");
  EXPECT_THAT(UserStore::inspect(directory.path()).faults,
              testing::UnorderedElementsAre(testing::HasSubstr("user 6 is not as it was stored"),
                                            testing::HasSubstr("card 32 is not as it was stored"),
                                            "card 32 is of user 7, who is not there"));
}

TEST_F(Users, AUserWhoIsNotAsHeWasStoredLetsNoCardOpenUntilHeIsPutAndUnblocked) {
  for (const char* change : {"name = 'Bna'", "valid_from = 1", "valid_until = 1", "blocked = 0", "sum = NULL"}) {
    UserStore(directory.path(), UserStore::Access::read_write)
        .put({.id = 7, .name = "Ana", .from = 5, .until = 9, .blocked = true});
    UserStore(directory.path(), UserStore::Access::read_write).bind(33, 7, "");
    SQLite::Database(directory.path() / "users.db", SQLite::OPEN_READWRITE)
        .exec(std::string("UPDATE users SET ") + change);
    UserStore later(directory.path(), UserStore::Access::read_write);
    std::vector<std::string> told;
    later.on_damage([&](const std::string& text) { told.push_back(text); });
    EXPECT_EQ(later.holder_of(33), std::nullopt) << change;
    ASSERT_EQ(told.size(), 1U) << change;
    EXPECT_THAT(told[0], testing::HasSubstr("user 7 in "));
    EXPECT_THAT(UserStore::inspect(directory.path()).faults,
                testing::ElementsAre(testing::StartsWith("user 7 is not as it was stored")));
    later.change_user({.id = 7, .name = "Ana"}, UserStore::Which::any);
    EXPECT_EQ(later.holder_of(33), (User{.id = 7, .name = "Ana", .blocked = true})) << change;
    EXPECT_THAT(UserStore::inspect(directory.path()).faults, testing::IsEmpty());
  }
}

TEST_F(Users, ADamagedCardThatHasGoneWithItsUserIsFreeAgain) {
  users.bind(33, 7, "");
  SQLite::Database(directory.path() / "users.db", SQLite::OPEN_READWRITE).exec("UPDATE cards SET registration = 'x'");
  UserStore later(directory.path(), UserStore::Access::read_write);
  EXPECT_EQ(later.owner_of(33), std::nullopt);
  later.remove_user(7);
  later.on_damage([](const std::string& text) { ADD_FAILURE() << text; });
  EXPECT_EQ(later.owner_of(33), std::nullopt);
  EXPECT_TRUE(later.bind(33, 8, ""));
  EXPECT_EQ(later.owner_of(33), 8);
}

TEST(UserStore, AFileOfTheSecondVersionIsBroughtUpToDateAndWhatIsDamagedThereStaysSo) {
  const TemporaryDirectory directory;
  refhost::DatabaseKind old{.noun = "user database",
                            .version = 2,
                            .schema =
                                "CREATE TABLE users(id INTEGER PRIMARY KEY, name TEXT NOT NULL, sum INTEGER);"
                                "CREATE TABLE cards(value INTEGER PRIMARY KEY, user INTEGER NOT NULL REFERENCES "
                                "users(id) ON DELETE CASCADE, registration TEXT NOT NULL, enrolled TEXT NOT NULL, sum "
                                "INTEGER); CREATE INDEX cards_by_user ON cards(user)",
                            .probe = "SELECT 1",
                            .way_out = ""};
  refhost::open_database(directory.path() / "users.db", old)
      .exec(
          "INSERT INTO users VALUES(7, 'Ana', row_sum(7, 'Ana')), (8, 'Ben', row_sum(8, 'Bem'));"
          "INSERT INTO cards VALUES(33, 7, 'r', '2026', row_sum(33, 7, 'r', '2026')), "
          "(34, 8, 'r', '2026', row_sum(34, 8, 'r', '2026')), (35, 7, 'r', '2026', 1)");
  const UserStore users(directory.path(), UserStore::Access::read_write);
  EXPECT_EQ(users.holder_of(33), (User{7, "Ana"}));
  EXPECT_EQ(users.holder_of(34), std::nullopt);
  EXPECT_EQ(users.holder_of(35), std::nullopt);
  EXPECT_THAT(UserStore::inspect(directory.path()).faults,
              testing::UnorderedElementsAre(testing::StartsWith("user 8 is not as it was stored"),
                                            testing::StartsWith("card 35 is not as it was stored")));
}

TEST(UserStore, AFileOfTheFirstVersionIsBroughtUpToDate) {
  const TemporaryDirectory directory;
  SQLite::Database(directory.path() / "users.db", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE)
      .exec(
          "CREATE TABLE users(id INTEGER PRIMARY KEY, name TEXT NOT NULL);"
          "CREATE TABLE cards(value INTEGER PRIMARY KEY, user INTEGER NOT NULL REFERENCES users(id) ON DELETE CASCADE, "
          "registration TEXT NOT NULL, enrolled TEXT NOT NULL); CREATE INDEX cards_by_user ON cards(user);"
          "INSERT INTO users VALUES(7, 'Ana'); INSERT INTO cards VALUES(33, 7, 'r', '2026'); PRAGMA user_version = 1");
  const UserStore users(directory.path(), UserStore::Access::read_write);
  EXPECT_EQ(users.owner_of(33), 7);
  EXPECT_THAT(UserStore::inspect(directory.path()).faults, testing::IsEmpty());
}

TEST(UserStore, WithoutAFileThereIsNobodyAndNoneIsMade) {
  const TemporaryDirectory directory;
  const UserStore users(directory.path(), UserStore::Access::read_only);
  EXPECT_TRUE(users.users().empty());
  EXPECT_EQ(users.owner_of(33), std::nullopt);
  EXPECT_FALSE(std::filesystem::exists(directory.path() / "users.db"));
}

}  // namespace
}  // namespace achost::test
