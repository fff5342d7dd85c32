#include "door/services/user_store.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <chrono>
#include <functional>
#include <mutex>
#include <utility>

#include "ac/exception.h"
#include "door/base/local_time.h"
#include "refhost/database.h"
#include "refhost/store_watch.h"

namespace achost {
namespace {

// A card of 64 bits is stored as the signed number of the same bits, the only kind of number that SQLite has.
constexpr refhost::DatabaseKind kKind = {
    .noun = "user database",
    .version = 2,
    .schema =
        "CREATE TABLE users(id INTEGER PRIMARY KEY, name TEXT NOT NULL, sum INTEGER);"
        "CREATE TABLE cards(value INTEGER PRIMARY KEY, user INTEGER NOT NULL REFERENCES users(id) ON DELETE CASCADE, "
        "registration TEXT NOT NULL, enrolled TEXT NOT NULL, sum INTEGER);"
        "CREATE INDEX cards_by_user ON cards(user)",
    .upgrades = {"ALTER TABLE users ADD COLUMN sum INTEGER; UPDATE users SET sum = row_sum(id, name);"
                 "ALTER TABLE cards ADD COLUMN sum INTEGER;"
                 "UPDATE cards SET sum = row_sum(value, user, registration, enrolled)"},
    .probe = "SELECT value, user, registration, enrolled FROM cards LIMIT 0",
    .way_out = "restore a copy of it, or move it away to begin with nobody",
};

constexpr const char* kFileName = "users.db";

std::int64_t stored(std::uint64_t card) { return static_cast<std::int64_t>(card); }

}  // namespace

struct UserStore::Impl {
  explicit Impl(const std::filesystem::path& the_file) : file(the_file), watch(the_file) {}

  const std::filesystem::path file;
  refhost::StoreWatch watch;
  std::vector<std::string> faults;  // of the opening
  std::function<void(const std::string&)> on_damage;
  std::mutex mutex;                          // guards all below
  std::optional<SQLite::Database> database;  // empty without a file, or once sealed
  std::optional<SQLite::Statement> owner;    // kept, because every identification asks it

  // What action(database) returns, with the mutex held; without a file the result type's nothing.
  template <typename Action>
  auto with(Action action) {
    const std::lock_guard lock(mutex);
    const refhost::StoreWatch::Use use(watch, "users and cards");
    try {
      return database.has_value() ? action(*database) : decltype(action(*database))();
    } catch (const SQLite::Exception& failure) {
      refhost::throw_database_failure(file, kKind, failure);
    }
  }

  // How many rows the statement, with one number, has changed.
  bool change(const char* sql, std::int64_t number) {
    return with([&](SQLite::Database& open) {
      SQLite::Statement statement(open, sql);
      statement.bind(1, number);
      return statement.exec() != 0;
    });
  }
};

UserStore::UserStore(const std::filesystem::path& directory, Access access)
    : impl_(std::make_unique<Impl>(directory / kFileName)) {
  if (access == Access::read_write) {
    refhost::make_state_directory(directory);
    impl_->database.emplace(refhost::open_database(impl_->file, kKind, nullptr, &impl_->faults));
  } else if (access == Access::beside_owner) {
    impl_->database.emplace(refhost::open_database_beside_owner(impl_->file, kKind));
  } else {
    impl_->database = refhost::open_database_to_read(impl_->file, kKind);
  }
  impl_->with([this](SQLite::Database& open) {
    open.exec("PRAGMA foreign_keys = ON");
    impl_->owner.emplace(open,
                         "SELECT user, sum IS row_sum(value, user, registration, enrolled) FROM cards WHERE value = ?");
    return true;
  });
}

UserStore::~UserStore() = default;

std::optional<std::int64_t> UserStore::owner_of(std::uint64_t card) const {
  return impl_->with([&](SQLite::Database&) -> std::optional<std::int64_t> {
    impl_->owner->tryReset();  // should the last time have failed
    impl_->owner->bind(1, stored(card));
    const bool found = impl_->owner->executeStep();
    const std::int64_t user = found ? impl_->owner->getColumn(0).getInt64() : 0;
    const bool is_right = found && impl_->owner->getColumn(1).getInt() == 1;
    impl_->owner->reset();
    if (found && !is_right && impl_->on_damage) {
      impl_->on_damage("a card in " + impl_->file.string() +
                       " is not as it was stored, and opens nothing: achost check tells which; remove and enroll it");
    }
    return is_right ? std::optional(user) : std::nullopt;
  });
}

std::string UserStore::name_of(std::int64_t user) const {
  return impl_->with([&](SQLite::Database& open) -> std::string {
    SQLite::Statement query(open, "SELECT name FROM users WHERE id = ?");
    query.bind(1, user);
    return query.executeStep() ? query.getColumn(0).getString() : "";
  });
}

bool UserStore::bind(std::uint64_t card, std::int64_t user, const std::string& registration) {
  return impl_->with([&](SQLite::Database& open) {
    SQLite::Transaction transaction(open);
    SQLite::Statement make_user(open, "INSERT OR IGNORE INTO users(id, name, sum) VALUES(?1, '', row_sum(?1, ''))");
    make_user.bind(1, user);
    make_user.exec();
    SQLite::Statement insert(open,
                             "INSERT OR IGNORE INTO cards(value, user, registration, enrolled, sum) "
                             "VALUES(?1, ?2, ?3, ?4, row_sum(?1, ?2, ?3, ?4))");
    insert.bind(1, stored(card));
    insert.bind(2, user);
    insert.bind(3, registration);
    insert.bind(4, iso_time(std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now())));
    const bool is_new = insert.exec() != 0;
    if (is_new) {
      transaction.commit();
    }
    return is_new;
  });
}

void UserStore::put(const User& user) {
  impl_->with([&](SQLite::Database& open) {
    SQLite::Statement upsert(open,
                             "INSERT INTO users(id, name, sum) VALUES(?1, ?2, row_sum(?1, ?2)) "
                             "ON CONFLICT(id) DO UPDATE SET name = excluded.name, sum = excluded.sum");
    upsert.bind(1, user.id);
    upsert.bind(2, user.name);
    return upsert.exec();
  });
}

bool UserStore::remove_user(std::int64_t id) { return impl_->change("DELETE FROM users WHERE id = ?", id); }

bool UserStore::remove_card(std::uint64_t card) {
  return impl_->change("DELETE FROM cards WHERE value = ?", stored(card));
}

std::vector<User> UserStore::users() const {
  return impl_->with([](SQLite::Database& open) {
    std::vector<User> users;
    SQLite::Statement query(open, "SELECT id, name FROM users ORDER BY id");
    while (query.executeStep()) {
      users.push_back({.id = query.getColumn(0).getInt64(), .name = query.getColumn(1)});
    }
    return users;
  });
}

std::vector<std::pair<User, std::int64_t>> UserStore::users_with_cards() const {
  return impl_->with([](SQLite::Database& open) {
    std::vector<std::pair<User, std::int64_t>> users;
    SQLite::Statement query(
        open, "SELECT id, name, (SELECT count(*) FROM cards WHERE user = users.id) FROM users ORDER BY id");
    while (query.executeStep()) {
      users.emplace_back(User{.id = query.getColumn(0).getInt64(), .name = query.getColumn(1)},
                         query.getColumn(2).getInt64());
    }
    return users;
  });
}

std::vector<Card> UserStore::cards() const {
  return impl_->with([](SQLite::Database& open) {
    std::vector<Card> cards;
    // The cards with the highest bit set, negative in the file, come last, as unsigned numbers do.
    SQLite::Statement query(open, "SELECT value, user, registration, enrolled FROM cards ORDER BY value < 0, value");
    while (query.executeStep()) {
      cards.push_back({.value = static_cast<std::uint64_t>(query.getColumn(0).getInt64()),
                       .user = query.getColumn(1).getInt64(),
                       .registration = query.getColumn(2),
                       .enrolled = with_zone(query.getColumn(3))});
    }
    return cards;
  });
}

void UserStore::on_damage(std::function<void(const std::string&)> callback) { impl_->on_damage = std::move(callback); }

const std::vector<std::string>& UserStore::faults() const { return impl_->faults; }

refhost::StoreReport UserStore::inspect(const std::filesystem::path& directory) {
  const auto look = [](SQLite::Database& open, refhost::StoreReport& report) {
    const std::int64_t users = open.execAndGet("SELECT count(*) FROM users");
    const std::int64_t cards = open.execAndGet("SELECT count(*) FROM cards");
    report.content = refhost::counted(users, "user") + ", " + refhost::counted(cards, "card");
    SQLite::Statement wrong(open,
                            "SELECT 'user ' || id || ' is not as it was stored: put the user again' FROM users "
                            "WHERE sum IS NOT row_sum(id, name) UNION ALL "
                            "SELECT 'card ' || value || ' is not as it was stored, and opens nothing: remove it and "
                            "enroll it again' FROM cards WHERE sum IS NOT row_sum(value, user, registration, enrolled) "
                            "UNION ALL SELECT 'card ' || value || ' is of user ' || user || ', who is not there' "
                            "FROM cards WHERE user NOT IN (SELECT id FROM users)");
    while (wrong.executeStep()) {
      report.faults.push_back(wrong.getColumn(0));
    }
  };
  return refhost::inspect_database("users", directory / kFileName, kKind, look);
}

void UserStore::seal() {
  impl_->mutex.lock();  // for good
  impl_->owner.reset();
  impl_->database.reset();
}

}  // namespace achost
