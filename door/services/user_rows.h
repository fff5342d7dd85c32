// Users and cards as rows of their database. Each function uses the database for the time of its call.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "door/services/schedule.h"
#include "door/services/user.h"
#include "refhost/database.h"

namespace achost::rows {

extern const refhost::DatabaseKind kKind;

// In the order of their numbers; is_right: the row is as it was written.
void each_user(SQLite::Database& database, const std::function<void(User user, bool is_right)>& take);
void each_card(SQLite::Database& database, const std::function<void(Card card, bool is_right)>& take);

// As each_card(), without what only a list tells.
void each_cards_user(SQLite::Database& database,
                     const std::function<void(std::uint64_t card, std::int64_t user, bool is_right)>& take);

// Of each user who has cards, how many.
void each_count(SQLite::Database& database, const std::function<void(std::int64_t user, std::int64_t cards)>& take);

// All of them, and the names of the schedules.
People people(SQLite::Database& database);

// Of those that are there.
std::map<std::int64_t, std::string> names(SQLite::Database& database, const std::set<std::int64_t>& users);

// All of them, each with whether it is as it was written.
Schedules schedules(SQLite::Database& database);
std::set<std::string> schedule_names(SQLite::Database& database);

// Which schedules users have, each with the first of them.
std::map<std::string, User> schedules_in_use(SQLite::Database& database);

// In place of all that are there.
void replace_schedules(SQLite::Database& database, const Schedules& schedules);
void remove_schedule(SQLite::Database& database, const std::string& name);

// Nothing when there is none; second: the row is as it was written.
std::optional<std::pair<User, bool>> user(SQLite::Database& database, std::int64_t id);
std::optional<Card> card(SQLite::Database& database, std::uint64_t value);
std::vector<std::uint64_t> cards_of(SQLite::Database& database, std::int64_t user);

// The numbers of the users that a search means, in their order.
std::vector<std::int64_t> found(SQLite::Database& database, const PeopleSearch& search, std::size_t most);

// How many he has, and the first of them, before these the one that is looked for.
std::int64_t card_count(SQLite::Database& database, std::int64_t user);
std::vector<Card> first_cards(SQLite::Database& database, std::int64_t user, const PeopleSearch& search,
                              std::size_t most);

// Ends with its block, undone unless it was committed; also where SQLite has begun it and then failed for want of
// memory, which would leave the file locked.
class Transaction {
 public:
  enum class For { reading, writing };

  Transaction(SQLite::Database& database, For what);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  void commit();

 private:
  void roll_back();

  SQLite::Database& database_;
};

// Writes and removes many with statements that are compiled once. Over the one that is there; a card's user must be
// there, and goes with all of his cards.
class UserWriter {
 public:
  explicit UserWriter(SQLite::Database& database);

  void put(const User& user);
  void put(const Card& card);
  void remove_user(std::int64_t id);
  void remove_card(std::uint64_t card);

 private:
  SQLite::Statement user_;
  SQLite::Statement card_;
  SQLite::Statement user_removed_;
  SQLite::Statement card_removed_;
};

// What is not as it was written, a line each.
std::vector<std::string> faults(SQLite::Database& database);

}  // namespace achost::rows
