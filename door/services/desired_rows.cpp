#include "door/services/desired_rows.h"

#include <utility>

#include "door/services/user_rows.h"

namespace achost::rows {
namespace {

void run(SQLite::Database& database, const char* sql, std::int64_t number) {
  SQLite::Statement statement(database, sql);
  statement.bind(1, number);
  statement.exec();
}

// A change that was taken back is none. Row by row NULL, of what is not there, is as good as NULL.
#define CHANGED_USERS                                                                                               \
  "SELECT b.id AS id FROM users_before b LEFT JOIN users u ON u.id = b.id WHERE (b.name, b.valid_from, "            \
  "b.valid_until, b.blocked, b.schedule, b.pause) IS NOT (u.name, u.valid_from, u.valid_until, u.blocked, "         \
  "u.schedule, u.pause) "                                                                                           \
  "UNION SELECT b.user FROM cards_before b LEFT JOIN cards c ON c.value = b.value WHERE b.user != 0 AND b.user IS " \
  "NOT c.user "                                                                                                     \
  "UNION SELECT c.user FROM cards_before b JOIN cards c ON c.value = b.value WHERE b.user != c.user"

std::vector<std::uint64_t> cards_from(SQLite::Database& database, const char* sql, std::int64_t user) {
  SQLite::Statement row(database, sql);
  row.bind(1, user);
  std::vector<std::uint64_t> cards;
  while (row.executeStep()) {
    cards.push_back(static_cast<std::uint64_t>(row.getColumn(0).getInt64()));
  }
  return cards;
}

// second: whether he was there.
std::optional<std::pair<User, bool>> user_before(SQLite::Database& database, std::int64_t id) {
  SQLite::Statement row(
      database, "SELECT name, valid_from, valid_until, blocked, schedule, pause FROM users_before WHERE id = ?");
  row.bind(1, id);
  if (!row.executeStep()) {
    return std::nullopt;
  }
  return std::pair(User{.id = id,
                        .name = row.getColumn(0).getString(),
                        .from = row.getColumn(1).getInt64(),
                        .until = row.getColumn(2).getInt64(),
                        .blocked = row.getColumn(3).getInt64() != 0,
                        .schedule = row.getColumn(4).getString(),
                        .pause = row.getColumn(5).getInt64()},
                   !row.getColumn(0).isNull());
}

}  // namespace

std::optional<Desired> desired(SQLite::Database& database) {
  SQLite::Statement row(database,
                        "SELECT revision, at, maker, schedules FROM desired WHERE sum IS row_sum(revision, at, maker, "
                        "schedules)");
  return row.executeStep() ? std::optional(Desired{.revision = row.getColumn(0).getInt64(),
                                                   .at = row.getColumn(1).getInt64(),
                                                   .maker = row.getColumn(2).getString(),
                                                   .schedules = row.getColumn(3).getString()})
                           : std::nullopt;
}

void put_desired(SQLite::Database& database, const Desired& desired) {
  SQLite::Statement row(database, "INSERT INTO desired VALUES(1, ?1, ?2, ?3, ?4, row_sum(?1, ?2, ?3, ?4))");
  row.bind(1, desired.revision);
  row.bind(2, desired.at);
  row.bind(3, desired.maker);
  row.bind(4, desired.schedules);
  row.exec();
}

void forget_desired(SQLite::Database& database) { database.exec("DELETE FROM desired"); }

std::vector<refhost::SettingValue> desired_settings(SQLite::Database& database) {
  std::vector<refhost::SettingValue> settings;
  SQLite::Statement row(database, "SELECT section, key, value FROM desired_settings ORDER BY section, key");
  while (row.executeStep()) {
    settings.push_back({row.getColumn(0).getString(), row.getColumn(1).getString(), row.getColumn(2).getString()});
  }
  return settings;
}

void put_desired_settings(SQLite::Database& database, const std::vector<refhost::SettingValue>& settings) {
  SQLite::Statement row(database, "INSERT OR REPLACE INTO desired_settings VALUES(?, ?, ?)");
  for (const auto& [section, key, value] : settings) {
    row.reset();
    row.bind(1, section);
    row.bind(2, key);
    row.bind(3, value);
    row.exec();
  }
}

void remove_desired_settings(SQLite::Database& database, const std::vector<refhost::SettingValue>& settings) {
  SQLite::Statement row(database, "DELETE FROM desired_settings WHERE section = ? AND key = ?");
  for (const auto& [section, key, value] : settings) {
    row.reset();
    row.bind(1, section);
    row.bind(2, key);
    row.exec();
  }
}

std::vector<SettingBefore> settings_before(SQLite::Database& database) {
  std::vector<SettingBefore> all;
  SQLite::Statement row(database, "SELECT section, key, value, wanted FROM settings_before ORDER BY rowid");
  while (row.executeStep()) {
    all.push_back(
        {.setting = {row.getColumn(0).getString(), row.getColumn(1).getString(), row.getColumn(2).getString()},
         .wanted = row.getColumn(3).getString()});
  }
  return all;
}

void put_setting_before(SQLite::Database& database, const SettingBefore& before) {
  SQLite::Statement row(database, "INSERT INTO settings_before VALUES(?, ?, ?, ?)");
  row.bind(1, before.setting.section);
  row.bind(2, before.setting.key);
  row.bind(3, before.setting.value);
  row.bind(4, before.wanted);
  row.exec();
}

void forget_settings_before(SQLite::Database& database) { database.exec("DELETE FROM settings_before"); }

void forget_change_of_user(SQLite::Database& database, std::int64_t user) {
  run(database, "DELETE FROM users_before WHERE id = ?", user);
  run(database, "DELETE FROM cards_before WHERE user = ?", user);
}

void forget_change_of_card(SQLite::Database& database, std::uint64_t card) {
  run(database, "DELETE FROM cards_before WHERE value = ?", static_cast<std::int64_t>(card));
}

void forget_changes(SQLite::Database& database) {
  database.exec("DELETE FROM users_before; DELETE FROM cards_before; DELETE FROM desired_settings");
}

std::vector<std::int64_t> changed_users(SQLite::Database& database) {
  std::vector<std::int64_t> users;
  SQLite::Statement row(database, CHANGED_USERS " ORDER BY 1");
  while (row.executeStep()) {
    users.push_back(row.getColumn(0).getInt64());
  }
  return users;
}

std::int64_t count_changed_users(SQLite::Database& database) {
  return database.execAndGet("SELECT count(*) FROM (" CHANGED_USERS ")").getInt64();
}

std::optional<Person> desired_person(SQLite::Database& database, std::int64_t id) {
  const auto before = user_before(database, id);
  const auto now = before.has_value() ? std::nullopt : user(database, id);
  if (!now.has_value() && !(before.has_value() && before->second)) {
    return std::nullopt;
  }
  return Person{.user = before.has_value() ? before->first : now->first,
                .cards = cards_from(database,
                                    "SELECT value FROM cards WHERE user = ?1 AND value NOT IN (SELECT value FROM "
                                    "cards_before) UNION SELECT value FROM cards_before WHERE user = ?1 ORDER BY 1",
                                    id)};
}

std::optional<Person> stored_person(SQLite::Database& database, std::int64_t id) {
  auto found = user(database, id);
  return found.has_value() ? std::optional(Person{.user = std::move(found->first), .cards = cards_of(database, id)})
                           : std::nullopt;
}

}  // namespace achost::rows
