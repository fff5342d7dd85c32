#include "door/services/user_rows.h"

#include <sqlite3.h>

#include <utility>

#include "door/services/desired_tables.h"

namespace achost::rows {
namespace {

// A card of 64 bits is stored as the signed number of the same bits, the only kind of number that SQLite has.
std::int64_t stored(std::uint64_t card) { return static_cast<std::int64_t>(card); }

// What stands first says whether the row is as it was written.
User user_of(SQLite::Statement& row) {
  return {.id = row.getColumn(1).getInt64(),
          .name = row.getColumn(2).getString(),
          .from = row.getColumn(3).getInt64(),
          .until = row.getColumn(4).getInt64(),
          .blocked = row.getColumn(5).getInt64() != 0,
          .schedule = row.getColumn(6).getString(),
          .pause = row.getColumn(7).getInt64()};
}

Card card_of(SQLite::Statement& row) {
  return {.value = static_cast<std::uint64_t>(row.getColumn(1).getInt64()),
          .user = row.getColumn(2).getInt64(),
          .registration = row.getColumn(3).getString(),
          .enrolled = row.getColumn(4).getString()};
}

#define USER_COLUMNS_OF_3 "id, name, valid_from, valid_until, blocked"
#define USER_COLUMNS USER_COLUMNS_OF_3 ", schedule, pause"
#define CARD_COLUMNS "value, user, registration, enrolled"
#define WINDOW_COLUMNS "schedule, days, opens, closes"
#define HOLIDAY_COLUMNS "day, name"

#define TABLES_OF_SCHEDULES                                                                             \
  "CREATE TABLE windows(schedule TEXT NOT NULL, days INTEGER NOT NULL, opens INTEGER NOT NULL, closes " \
  "INTEGER NOT NULL, sum INTEGER);"                                                                     \
  "CREATE TABLE holidays(day INTEGER PRIMARY KEY, name TEXT NOT NULL, sum INTEGER)"

// The cards with the highest bit set, negative in the file, come last, as unsigned numbers do. Two walks in the order
// of the file take no sorting.
template <typename Take>
void walk_cards(SQLite::Database& database, const std::string& columns, Take take) {
  for (const char* const half : {"value >= 0", "value < 0"}) {
    SQLite::Statement row(database, "SELECT sum IS row_sum(" CARD_COLUMNS "), " + columns + " FROM cards WHERE " +
                                        half + " ORDER BY value");
    while (row.executeStep()) {
      take(row, row.getColumn(0).getInt() == 1);
    }
  }
}

void run_with(SQLite::Statement& statement, std::int64_t number) {
  statement.reset();
  statement.bind(1, number);
  statement.exec();
}

}  // namespace

// 0 stands for no limit, and not NULL: one flipped bit makes one of the other, which the sum would not see.
const refhost::DatabaseKind kKind = {
    .noun = "user database",
    .version = 5,
    .schema =
        "CREATE TABLE users(id INTEGER PRIMARY KEY, name TEXT NOT NULL, sum INTEGER, "
        "valid_from INTEGER NOT NULL DEFAULT 0, valid_until INTEGER NOT NULL DEFAULT 0, "
        "blocked INTEGER NOT NULL DEFAULT 0, schedule TEXT NOT NULL DEFAULT '', pause INTEGER NOT NULL DEFAULT 0);"
        "CREATE TABLE cards(value INTEGER PRIMARY KEY, user INTEGER NOT NULL REFERENCES users(id) ON DELETE CASCADE, "
        "registration TEXT NOT NULL, enrolled TEXT NOT NULL, sum INTEGER);"
        "CREATE INDEX cards_by_user ON cards(user);" TABLES_OF_SCHEDULES ";" TABLES_OF_DESIRED_STATE,
    .upgrades = {"ALTER TABLE users ADD COLUMN sum INTEGER; UPDATE users SET sum = row_sum(id, name);"
                 "ALTER TABLE cards ADD COLUMN sum INTEGER;"
                 "UPDATE cards SET sum = row_sum(" CARD_COLUMNS ")",
                 // A row that was damaged stays so.
                 "ALTER TABLE users ADD COLUMN valid_from INTEGER NOT NULL DEFAULT 0;"
                 "ALTER TABLE users ADD COLUMN valid_until INTEGER NOT NULL DEFAULT 0;"
                 "ALTER TABLE users ADD COLUMN blocked INTEGER NOT NULL DEFAULT 0;"
                 "UPDATE users SET sum = CASE WHEN sum IS row_sum(id, name) THEN row_sum(" USER_COLUMNS_OF_3 ") END",
                 "ALTER TABLE users ADD COLUMN schedule TEXT NOT NULL DEFAULT '';"
                 "ALTER TABLE users ADD COLUMN pause INTEGER NOT NULL DEFAULT 0;"
                 "UPDATE users SET sum = CASE WHEN sum IS row_sum(" USER_COLUMNS_OF_3 ") THEN row_sum(" USER_COLUMNS
                 ") END;" TABLES_OF_SCHEDULES,
                 TABLES_OF_DESIRED_STATE},
    .probe = "SELECT value, user, registration, enrolled FROM cards LIMIT 0",
    .way_out = "restore a copy of it, or move it away to begin with nobody",
};

void each_user(SQLite::Database& database, const std::function<void(User user, bool is_right)>& take) {
  SQLite::Statement row(database, "SELECT sum IS row_sum(" USER_COLUMNS "), " USER_COLUMNS " FROM users ORDER BY id");
  while (row.executeStep()) {
    take(user_of(row), row.getColumn(0).getInt() == 1);
  }
}

void each_card(SQLite::Database& database, const std::function<void(Card card, bool is_right)>& take) {
  walk_cards(database, CARD_COLUMNS, [&](SQLite::Statement& row, bool is_right) { take(card_of(row), is_right); });
}

void each_cards_user(SQLite::Database& database,
                     const std::function<void(std::uint64_t card, std::int64_t user, bool is_right)>& take) {
  walk_cards(database, "value, user", [&](SQLite::Statement& row, bool is_right) {
    take(static_cast<std::uint64_t>(row.getColumn(1).getInt64()), row.getColumn(2).getInt64(), is_right);
  });
}

void each_count(SQLite::Database& database, const std::function<void(std::int64_t user, std::int64_t cards)>& take) {
  SQLite::Statement row(database, "SELECT user, count(*) FROM cards GROUP BY user");
  while (row.executeStep()) {
    take(row.getColumn(0).getInt64(), row.getColumn(1).getInt64());
  }
}

std::map<std::int64_t, std::string> names(SQLite::Database& database, const std::set<std::int64_t>& users) {
  SQLite::Statement row(database, "SELECT name FROM users WHERE id = ?");
  std::map<std::int64_t, std::string> names;
  for (const auto id : users) {
    row.bind(1, id);
    if (row.executeStep()) {
      names.emplace_hint(names.end(), id, row.getColumn(0).getString());
    }
    row.reset();
  }
  return names;
}

std::optional<std::pair<User, bool>> user(SQLite::Database& database, std::int64_t id) {
  SQLite::Statement row(database, "SELECT sum IS row_sum(" USER_COLUMNS "), " USER_COLUMNS " FROM users WHERE id = ?");
  row.bind(1, id);
  return row.executeStep() ? std::optional(std::pair(user_of(row), row.getColumn(0).getInt() == 1)) : std::nullopt;
}

std::optional<Card> card(SQLite::Database& database, std::uint64_t value) {
  SQLite::Statement row(database, "SELECT 1, " CARD_COLUMNS " FROM cards WHERE value = ?");
  row.bind(1, stored(value));
  return row.executeStep() ? std::optional(card_of(row)) : std::nullopt;
}

std::vector<std::uint64_t> cards_of(SQLite::Database& database, std::int64_t user) {
  SQLite::Statement row(database, "SELECT value FROM cards WHERE user = ? ORDER BY value");
  row.bind(1, user);
  std::vector<std::uint64_t> cards;
  while (row.executeStep()) {
    cards.push_back(static_cast<std::uint64_t>(row.getColumn(0).getInt64()));
  }
  return cards;
}

People people(SQLite::Database& database) {
  People all;
  each_user(database, [&](User user, bool is_right) {
    if (!is_right) {
      all.damaged_users.insert(user.id);
    }
    all.users.push_back(std::move(user));
  });
  each_card(database, [&](Card card, bool is_right) {
    if (!is_right) {
      all.damaged_cards.insert(card.value);
    }
    all.cards.push_back(std::move(card));
  });
  all.schedules = schedule_names(database);
  return all;
}

// LIKE would take % and _ for more than they are.
std::vector<std::int64_t> found(SQLite::Database& database, const PeopleSearch& search, std::size_t most) {
  SQLite::Statement row(
      database,
      "SELECT id FROM users WHERE id > ?1 AND (?2 = '' OR instr(lower(name), lower(?2)) OR id = ?3 OR "
      "id = (SELECT user FROM cards WHERE value = ?4)) ORDER BY id LIMIT ?5");
  row.bind(1, search.after);
  row.bind(2, search.text);
  if (const auto number = user_number(search.text); number.has_value()) {
    row.bind(3, *number);
  }
  if (const auto card = card_number(search.text); card.has_value()) {
    row.bind(4, stored(*card));
  }
  row.bind(5, static_cast<std::int64_t>(most));
  std::vector<std::int64_t> users;
  while (row.executeStep()) {
    users.push_back(row.getColumn(0).getInt64());
  }
  return users;
}

std::int64_t card_count(SQLite::Database& database, std::int64_t user) {
  SQLite::Statement row(database, "SELECT count(*) FROM cards WHERE user = ?");
  row.bind(1, user);
  row.executeStep();
  return row.getColumn(0).getInt64();
}

std::vector<Card> first_cards(SQLite::Database& database, std::int64_t user, const PeopleSearch& search,
                              std::size_t most) {
  SQLite::Statement row(database, "SELECT 1, " CARD_COLUMNS
                                  " FROM cards WHERE user = ?1 ORDER BY value IS ?2 DESC, value < 0, value LIMIT ?3");
  row.bind(1, user);
  if (const auto card = card_number(search.text); card.has_value()) {
    row.bind(2, stored(*card));
  }
  row.bind(3, static_cast<std::int64_t>(most));
  std::vector<Card> cards;
  while (row.executeStep()) {
    cards.push_back(card_of(row));
  }
  return cards;
}

// The order of the rows is that in which they were written.
Schedules schedules(SQLite::Database& database) {
  Schedules all;
  SQLite::Statement row(
      database, "SELECT sum IS row_sum(" WINDOW_COLUMNS "), " WINDOW_COLUMNS " FROM windows ORDER BY schedule, rowid");
  while (row.executeStep()) {
    if (const auto name = row.getColumn(1).getString(); all.all.empty() || all.all.back().name != name) {
      all.all.push_back({.name = name, .windows = {}});
    }
    all.all.back().is_right &= row.getColumn(0).getInt() == 1;
    all.all.back().windows.push_back({.days = static_cast<Days>(row.getColumn(2).getUInt()),
                                      .from = row.getColumn(3).getInt(),
                                      .to = row.getColumn(4).getInt()});
  }
  SQLite::Statement day(database,
                        "SELECT sum IS row_sum(" HOLIDAY_COLUMNS "), " HOLIDAY_COLUMNS " FROM holidays ORDER BY day");
  while (day.executeStep()) {
    all.holidays_are_right &= day.getColumn(0).getInt() == 1;
    all.holidays.push_back(
        {.day = LocalDay(std::chrono::days(day.getColumn(1).getInt())), .name = day.getColumn(2).getString()});
  }
  return all;
}

std::set<std::string> schedule_names(SQLite::Database& database) {
  std::set<std::string> names;
  SQLite::Statement row(database, "SELECT DISTINCT schedule FROM windows");
  while (row.executeStep()) {
    names.insert(row.getColumn(0).getString());
  }
  return names;
}

std::map<std::string, User> schedules_in_use(SQLite::Database& database) {
  std::map<std::string, User> uses;
  SQLite::Statement row(database, "SELECT 1, " USER_COLUMNS " FROM users WHERE schedule != '' ORDER BY id");
  while (row.executeStep()) {
    auto user = user_of(row);
    uses.try_emplace(user.schedule, user);
  }
  return uses;
}

void replace_schedules(SQLite::Database& database, const Schedules& schedules) {
  database.exec("DELETE FROM windows; DELETE FROM holidays");
  SQLite::Statement window(
      database, "INSERT INTO windows(" WINDOW_COLUMNS ", sum) VALUES(?1, ?2, ?3, ?4, row_sum(?1, ?2, ?3, ?4))");
  for (const auto& schedule : schedules.all) {
    for (const auto& [days, from, to] : schedule.windows) {
      window.reset();
      window.bind(1, schedule.name);
      window.bind(2, std::int64_t{days});
      window.bind(3, std::int64_t{from});
      window.bind(4, std::int64_t{to});
      window.exec();
    }
  }
  SQLite::Statement holiday(database, "INSERT INTO holidays(" HOLIDAY_COLUMNS ", sum) VALUES(?1, ?2, row_sum(?1, ?2))");
  for (const auto& [day, name] : schedules.holidays) {
    holiday.reset();
    holiday.bind(1, std::int64_t{day.time_since_epoch().count()});
    holiday.bind(2, name);
    holiday.exec();
  }
}

void remove_schedule(SQLite::Database& database, const std::string& name) {
  SQLite::Statement statement(database, "DELETE FROM windows WHERE schedule = ?");
  statement.bind(1, name);
  statement.exec();
}

Transaction::Transaction(SQLite::Database& database, For what) : database_(database) {
  try {
    database_.exec(what == For::writing ? "BEGIN IMMEDIATE" : "BEGIN");
  } catch (...) {
    roll_back();
    throw;
  }
}

Transaction::~Transaction() { roll_back(); }

void Transaction::commit() { database_.exec("COMMIT"); }

void Transaction::roll_back() {
  if (sqlite3_get_autocommit(database_.getHandle()) == 0) {  // none is open otherwise
    database_.tryExec("ROLLBACK");
  }
}

void UserWriter::put(const User& user) {
  user_.reset();
  user_.bind(1, user.id);
  user_.bind(2, user.name);
  user_.bind(3, user.from);
  user_.bind(4, user.until);
  user_.bind(5, user.blocked ? 1 : 0);
  user_.bind(6, user.schedule);
  user_.bind(7, user.pause);
  user_.exec();
}

void UserWriter::put(const Card& card) {
  card_.reset();
  card_.bind(1, stored(card.value));
  card_.bind(2, card.user);
  card_.bind(3, card.registration);
  card_.bind(4, card.enrolled);
  card_.exec();
}

void UserWriter::remove_user(std::int64_t id) { run_with(user_removed_, id); }

void UserWriter::remove_card(std::uint64_t card) { run_with(card_removed_, stored(card)); }

UserWriter::UserWriter(SQLite::Database& database)
    : user_(database, "INSERT INTO users(" USER_COLUMNS
                      ", sum) VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, row_sum(?1, ?2, ?3, ?4, ?5, ?6, ?7)) ON CONFLICT(id) "
                      "DO UPDATE SET name = excluded.name, valid_from = excluded.valid_from, valid_until = "
                      "excluded.valid_until, blocked = excluded.blocked, schedule = excluded.schedule, pause = "
                      "excluded.pause, sum = excluded.sum"),
      card_(database, "INSERT INTO cards(" CARD_COLUMNS
                      ", sum) VALUES(?1, ?2, ?3, ?4, row_sum(?1, ?2, ?3, ?4)) ON CONFLICT(value) DO UPDATE SET "
                      "user = excluded.user, registration = excluded.registration, enrolled = excluded.enrolled, "
                      "sum = excluded.sum"),
      user_removed_(database, "DELETE FROM users WHERE id = ?"),
      card_removed_(database, "DELETE FROM cards WHERE value = ?") {}

std::vector<std::string> faults(SQLite::Database& database) {
  std::vector<std::string> all;
  SQLite::Statement wrong(database,
                          "SELECT 'user ' || id || ' is not as it was stored, and no card of his opens: put the user "
                          "again, and unblock him' FROM users WHERE sum IS NOT row_sum(" USER_COLUMNS
                          ") UNION ALL SELECT 'card ' || value || ' is not as it was stored, and opens nothing: remove "
                          "it and enroll it again' FROM cards WHERE sum IS NOT row_sum(" CARD_COLUMNS
                          ") UNION ALL SELECT 'card ' || value || ' is of user ' || user || ', who is not there' "
                          "FROM cards WHERE user NOT IN (SELECT id FROM users) UNION ALL "
                          "SELECT DISTINCT 'schedule ' || schedule || ' is not as it was stored, and never holds: "
                          "import the schedules again' FROM windows WHERE sum IS NOT row_sum(" WINDOW_COLUMNS
                          ") UNION ALL SELECT 'holiday ' || date(day * 86400, 'unixepoch') || ' is not as it was "
                          "stored: import the schedules again' FROM holidays WHERE sum IS NOT row_sum(" HOLIDAY_COLUMNS
                          ") UNION ALL SELECT 'user ' || id || ' is in schedule ' || schedule || ', which is not "
                          "there' FROM users WHERE schedule != '' AND schedule NOT IN (SELECT schedule FROM windows)");
  while (wrong.executeStep()) {
    all.push_back(wrong.getColumn(0).getString());
  }
  return all;
}

}  // namespace achost::rows
