// What the door is to be like, as rows beside the users (desired_tables.h). Each function uses the database for the
// time of its call.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "door/services/user.h"
#include "refhost/settings_schema.h"

namespace achost::rows {

// The document that was taken.
struct Desired {
  std::int64_t revision = 0;
  std::int64_t at = 0;         // ms since 1970 UTC
  std::string maker = {};      // who has brought it
  std::string schedules = {};  // as they are exported; empty where it says nothing of them
};

// Nothing where none was taken, or where it is not as it was written: then nobody knows what it was.
std::optional<Desired> desired(SQLite::Database& database);

// From then on changes are kept, and are not any more.
void put_desired(SQLite::Database& database, const Desired& desired);
void forget_desired(SQLite::Database& database);

// The settings that it names.
std::vector<refhost::SettingValue> desired_settings(SQLite::Database& database);
void put_desired_settings(SQLite::Database& database, const std::vector<refhost::SettingValue>& settings);
void remove_desired_settings(SQLite::Database& database, const std::vector<refhost::SettingValue>& settings);

// A setting that is being changed in another file.
struct SettingBefore {
  refhost::SettingValue setting;
  std::string wanted;
};
std::vector<SettingBefore> settings_before(SQLite::Database& database);
void put_setting_before(SQLite::Database& database, const SettingBefore& before);
void forget_settings_before(SQLite::Database& database);

// Of these users and of these cards, of all: what was changed before does not count any more.
void forget_change_of_user(SQLite::Database& database, std::int64_t user);
void forget_change_of_card(SQLite::Database& database, std::uint64_t card);
void forget_changes(SQLite::Database& database);

// The users who are not as the document has them, or have other cards, in the order of their numbers.
std::vector<std::int64_t> changed_users(SQLite::Database& database);
std::int64_t count_changed_users(SQLite::Database& database);

// As the document has him, and as he is; nothing when he is not there.
std::optional<Person> desired_person(SQLite::Database& database, std::int64_t user);
std::optional<Person> stored_person(SQLite::Database& database, std::int64_t user);

}  // namespace achost::rows
