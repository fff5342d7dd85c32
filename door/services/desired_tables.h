// The tables of users.db that keep what the door is to be like: which document was taken, and of what somebody has
// changed since, how the document had it.
#pragma once

// desired: a row once a document was taken; its schedules as they are exported, empty where it says nothing of them.
// settings_before: while settings of a document are being stored in their own file, how they were (desired_state.h).
// users_before and cards_before: as the document has them, of those that were changed since; a user without a name was
// not there, a card of user 0 is nobody's. Triggers write them, so that no way of changing a user forgets it; they cost
// nothing without a document.
#define TABLES_OF_DESIRED_STATE                                                                                        \
  "CREATE TABLE desired(id INTEGER PRIMARY KEY CHECK(id = 1), revision INTEGER NOT NULL, at INTEGER NOT NULL, maker "  \
  "TEXT NOT NULL, schedules TEXT NOT NULL, sum INTEGER);"                                                              \
  "CREATE TABLE desired_settings(section TEXT NOT NULL, key TEXT NOT NULL, value TEXT NOT NULL, PRIMARY KEY(section, " \
  "key)) WITHOUT ROWID;"                                                                                               \
  "CREATE TABLE settings_before(section TEXT NOT NULL, key TEXT NOT NULL, value TEXT NOT NULL, wanted TEXT NOT NULL);" \
  "CREATE TABLE users_before(id INTEGER PRIMARY KEY, name TEXT, valid_from INTEGER, valid_until INTEGER, blocked "     \
  "INTEGER, schedule TEXT, pause INTEGER);"                                                                            \
  "CREATE TABLE cards_before(value INTEGER PRIMARY KEY, user INTEGER NOT NULL);"                                       \
  "CREATE INDEX cards_before_by_user ON cards_before(user);"                                                           \
  "CREATE TRIGGER user_made AFTER INSERT ON users WHEN EXISTS(SELECT 1 FROM desired) BEGIN INSERT INTO "               \
  "users_before(id) SELECT new.id WHERE NOT EXISTS(SELECT 1 FROM users_before WHERE id = new.id); END;"                \
  "CREATE TRIGGER user_changed AFTER UPDATE ON users WHEN EXISTS(SELECT 1 FROM desired) BEGIN INSERT INTO "            \
  "users_before " OLD_USER                                                                                             \
  "; END;"                                                                                                             \
  "CREATE TRIGGER user_removed AFTER DELETE ON users WHEN EXISTS(SELECT 1 FROM desired) BEGIN INSERT INTO "            \
  "users_before " OLD_USER                                                                                             \
  "; END;"                                                                                                             \
  "CREATE TRIGGER card_made AFTER INSERT ON cards WHEN EXISTS(SELECT 1 FROM desired) BEGIN INSERT INTO cards_before "  \
  "SELECT new.value, 0 WHERE NOT EXISTS(SELECT 1 FROM cards_before WHERE value = new.value); END;"                     \
  "CREATE TRIGGER card_changed AFTER UPDATE ON cards WHEN EXISTS(SELECT 1 FROM desired) BEGIN INSERT INTO "            \
  "cards_before " OLD_CARD                                                                                             \
  "; END;"                                                                                                             \
  "CREATE TRIGGER card_removed AFTER DELETE ON cards WHEN EXISTS(SELECT 1 FROM desired) BEGIN INSERT INTO "            \
  "cards_before " OLD_CARD "; END"

#define OLD_USER                                                                                              \
  "SELECT old.id, old.name, old.valid_from, old.valid_until, old.blocked, old.schedule, old.pause WHERE NOT " \
  "EXISTS(SELECT 1 FROM users_before WHERE id = old.id)"
#define OLD_CARD "SELECT old.value, old.user WHERE NOT EXISTS(SELECT 1 FROM cards_before WHERE value = old.value)"
