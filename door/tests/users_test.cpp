#include "door/services/user_store.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>
#include <stdlib.h>

#include <ctime>
#include <limits>
#include <thread>

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

TEST_F(Users, AnotherStoreOfTheFileSeesThemAtOnce) {
  users.bind(33, 7, "");
  UserStore other(directory.path(), UserStore::Access::read_write);
  EXPECT_EQ(other.owner_of(33), 7);
  other.remove_card(33);
  EXPECT_EQ(users.owner_of(33), std::nullopt);
  EXPECT_EQ(UserStore(directory.path(), UserStore::Access::read_only).users().size(), 1U);
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
  std::vector<std::string> told;
  users.on_damage([&](const std::string& text) { told.push_back(text); });
  for (const char* change : {"user = 8 WHERE value = 33", "registration = 's' WHERE value = 33",
                             "enrolled = '3' || substr(enrolled, 2) WHERE value = 33", "sum = sum + 1 WHERE value = 33",
                             "sum = NULL WHERE value = 33"}) {
    SQLite::Database other(directory.path() / "users.db", SQLite::OPEN_READWRITE);
    other.exec(std::string("UPDATE cards SET ") + change);
    told.clear();
    EXPECT_EQ(users.owner_of(33), std::nullopt) << change;
    EXPECT_EQ(users.owner_of(34), 8);
    ASSERT_EQ(told.size(), 1U) << change;
    EXPECT_THAT(told[0], testing::HasSubstr("users.db is not as it was stored, and opens nothing"));
    EXPECT_THAT(
        UserStore::inspect(directory.path()).faults,
        testing::ElementsAre("card 33 is not as it was stored, and opens nothing: remove it and enroll it again"));
    users.remove_card(33);
    users.bind(33, 7, "r");
    EXPECT_EQ(users.owner_of(33), 7);
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
