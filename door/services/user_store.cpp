#include "door/services/user_store.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <iterator>
#include <mutex>
#include <new>
#include <utility>

#include "ac/exception.h"
#include "door/base/failure.h"
#include "door/base/local_time.h"
#include "door/journal/changes.h"
#include "door/services/people_notes.h"
#include "door/services/user_memory.h"
#include "door/services/user_rows.h"
#include "refhost/database.h"
#include "refhost/log.h"
#include "refhost/store_watch.h"

namespace achost {
namespace {

using rows::kKind;

constexpr const char* kFileName = "users.db";

std::string now() { return iso_time(std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now())); }

[[noreturn]] void refuse_removal(const std::string& schedule, const User& user) {
  throw Failure(kFailed, "schedule " + schedule + " is that of " + achost::named(user) +
                             ", and would go: give all who have it another first, such as --schedule none");
}

// Throws Failure when a user has a schedule that would go.
std::vector<Entry> notes_of_replacing(SQLite::Database& open, const Schedules& wanted) {
  for (const auto& [name, user] : rows::schedules_in_use(open)) {
    if (wanted.find(name) == nullptr) {
      refuse_removal(name, user);
    }
  }
  return notes_of(rows::schedules(open), wanted);
}

}  // namespace

struct UserStore::Impl {
  Impl(const std::filesystem::path& the_file, Access access)
      : file(the_file), is_owner(access == Access::read_write), watch(the_file) {}

  const std::filesystem::path file;
  const bool is_owner;  // else others write it
  refhost::StoreWatch watch;
  std::vector<std::string> faults;  // of the opening
  std::function<void(const std::string&)> on_damage;
  std::function<void(const Entry&)> on_change = [](const Entry&) {};

  std::mutex mutex;                          // guards the next two; its holder may wait for the disk
  std::optional<SQLite::Database> database;  // empty without a file, or once sealed
  std::vector<Entry> notes;                  // of the change that is being made
  std::atomic<std::uint64_t> changes = 0;    // that were written; any thread reads it

  std::mutex memory_mutex;  // guards the rest; taken after the other one; its holder does not wait for the disk
  UserMemory memory;
  std::shared_ptr<const Schedules> schedules = std::make_shared<const Schedules>();
  bool is_loaded = false;  // the memory is of all that is stored; the owner's, as nobody else writes

  // What action() returns; SQLite's failures name the file.
  template <typename Action>
  auto named(Action action) {
    try {
      return action();
    } catch (const SQLite::Exception& failure) {
      refhost::throw_database_failure(file, kKind, failure);
    }
  }

  // What action(database) returns, with the mutex held; without a file the result type's nothing.
  template <typename Action>
  auto with(Action action) {
    const std::lock_guard lock(mutex);
    return with_lock(action);
  }

  template <typename Action>
  auto with_lock(Action action) {
    const refhost::StoreWatch::Use use(watch, "users and cards");
    return named([&] { return database.has_value() ? action(*database) : decltype(action(*database))(); });
  }

  // The same in a transaction that writes: no other process comes between what it reads and what it writes. learn():
  // the same for the memory, once it is on the disk.
  template <typename Action, typename Learn>
  auto change(Action action, Learn learn) {
    return with([&](SQLite::Database& open) {
      rows::Transaction transaction(open, rows::Transaction::For::writing);
      notes.clear();
      auto result = action(open);
      transaction.commit();
      ++changes;
      tell_of_change();
      try {
        learn(open, result);
      } catch (const std::exception&) {  // what is written is written; who asks next loads it
      }
      return result;
    });
  }

  // The same for what changes a few rows of a memory that is of all before it.
  template <typename Action, typename Learn>
  auto change_few(Action action, Learn learn) {
    return change(action, [&](SQLite::Database&, const auto& result) {
      const std::lock_guard lock(memory_mutex);
      // Should it fail midway, what comes later must not be put upon what is missing.
      if (std::exchange(is_loaded, false)) {
        learn(result);
        is_loaded = true;
      }
    });
  }

  void load(SQLite::Database& open);
  void load_instead(SQLite::Database& open);
  void look(const std::function<void(SQLite::Database&)>& read);
  void learn(const PeopleChange& change);
  void note(std::vector<Entry> more) { std::ranges::move(more, std::back_inserter(notes)); }
  void tell_of_change();
  std::optional<User> held(std::uint64_t card);
  void tell_of_damaged_schedule(const std::string& name) const;
};

// With the mutex held. What is written stands, also when there is no memory to note it.
void UserStore::Impl::tell_of_change() {
  try {
    std::ranges::for_each(notes, on_change);
  } catch (const std::bad_alloc&) {
    refhost::log::error("users.db: there is no memory to note a change");
  }
}

// With the mutex held.
void UserStore::Impl::load(SQLite::Database& open) {
  const rows::Transaction transaction(open, rows::Transaction::For::reading);
  UserMemory fresh;
  fresh.reserve(static_cast<std::size_t>(open.execAndGet("SELECT count(*) FROM users").getInt64()),
                static_cast<std::size_t>(open.execAndGet("SELECT count(*) FROM cards").getInt64()));
  rows::each_user(open, [&](User user, bool is_right) { fresh.add_user(std::move(user), is_right); });
  rows::each_cards_user(
      open, [&](std::uint64_t card, std::int64_t user, bool is_right) { fresh.add_card(card, user, is_right); });
  auto fresh_schedules = std::make_shared<const Schedules>(rows::schedules(open));
  const std::lock_guard lock(memory_mutex);
  std::swap(memory, fresh);  // the one before goes when nobody waits for the lock any more
  schedules = std::move(fresh_schedules);
  is_loaded = is_owner;
}

// With the mutex held.
void UserStore::Impl::look(const std::function<void(SQLite::Database&)>& read) {
  with_lock([&](SQLite::Database& open) {
    const rows::Transaction transaction(open, rows::Transaction::For::reading);
    read(open);
    return true;
  });
}

// The same in place of what is known. Until it is there, the one before answers; whoever has made the change waits.
void UserStore::Impl::load_instead(SQLite::Database& open) {
  try {
    load(open);
  } catch (...) {
    const std::lock_guard lock(memory_mutex);
    is_loaded = false;
    throw;
  }
}

// With memory_mutex held. A card that another has got by now does not go with its user.
void UserStore::Impl::learn(const PeopleChange& change) {
  for (const auto& user : change.users) {
    memory.add_user(user, true);
  }
  for (const auto& card : change.cards) {
    memory.add_card(card.value, card.user, true);
  }
  for (const auto card : change.cards_removed) {
    memory.remove_card(card);
  }
  for (const auto id : change.users_removed) {
    memory.remove_user(id);
  }
}

// With memory_mutex held.
std::optional<User> UserStore::Impl::held(std::uint64_t card) {
  using HolderKind = UserMemory::Holder::Kind;
  auto holder = memory.holder_of(card);
  const std::string where = " in " + file.string() + " is not as it was stored, ";
  if (holder.kind == HolderKind::damaged_card && on_damage) {
    on_damage("a card" + where + "and opens nothing: achost check tells which; remove and enroll it");
  } else if (holder.kind == HolderKind::damaged_user && on_damage) {
    on_damage("user " + std::to_string(holder.id) + where + "and no card of his opens: put and unblock him");
  }
  if (holder.user.has_value() && !holder.user->schedule.empty() && on_damage) {
    tell_of_damaged_schedule(holder.user->schedule);
  }
  return holder.user;
}

// With memory_mutex held.
void UserStore::Impl::tell_of_damaged_schedule(const std::string& name) const {
  const auto* const schedule = schedules->find(name);
  const std::string where = " in " + file.string();
  const std::string rest = " not as it was stored, and never holds: achost schedule import mends it";
  if (schedule == nullptr || !schedule->is_right) {
    on_damage("schedule " + name + where + " is" + rest);
  } else if (!schedules->holidays_are_right) {
    on_damage("a holiday" + where + " is not as it was stored: achost check tells which, and schedule import mends it");
  }
}

UserStore::UserStore(const std::filesystem::path& directory, Access access)
    : impl_(std::make_unique<Impl>(directory / kFileName, access)) {
  Impl& my = *impl_;
  if (access == Access::read_write) {
    refhost::make_state_directory(directory);
    my.database.emplace(refhost::open_database(my.file, kKind, nullptr, &my.faults));
  } else {
    my.database = refhost::open_database_to_read(my.file, kKind);
  }
  my.with([&](SQLite::Database& open) {
    open.exec("PRAGMA foreign_keys = ON");
    if (my.is_owner) {
      my.load(open);  // nobody waits for it yet
    }
    return true;
  });
}

UserStore::~UserStore() = default;

std::optional<User> UserStore::holder_of(std::uint64_t card) const {
  {
    const std::lock_guard lock(impl_->memory_mutex);
    if (impl_->is_loaded) {
      return impl_->held(card);
    }
  }
  return impl_->with([&](SQLite::Database& open) {
    impl_->load(open);
    const std::lock_guard lock(impl_->memory_mutex);
    return impl_->held(card);
  });
}

std::optional<std::int64_t> UserStore::owner_of(std::uint64_t card) const {
  const auto holder = holder_of(card);
  return holder.has_value() ? std::optional(holder->id) : std::nullopt;
}

std::string UserStore::name_of(std::int64_t user) const {
  {
    const std::lock_guard lock(impl_->memory_mutex);
    if (impl_->is_loaded) {
      return impl_->memory.name_of(user);
    }
  }
  const auto found = this->user(user);
  return found.has_value() ? found->name : "";
}

std::map<std::int64_t, std::string> UserStore::names_of(const std::set<std::int64_t>& users) const {
  return impl_->with([&users](SQLite::Database& open) { return rows::names(open, users); });
}

bool UserStore::bind(std::uint64_t card, std::int64_t user, const std::string& registration) {
  struct Bound {
    bool is_new = false;
    bool made_user = false;
  };
  const auto write = [&](SQLite::Database& open) {
    if (rows::card(open, card).has_value()) {
      return Bound{};
    }
    rows::UserWriter writer(open);
    const bool makes_user = !rows::user(open, user).has_value();
    if (makes_user) {
      writer.put(User{.id = user});
      impl_->note(notes_of(std::nullopt, User{.id = user}));
    }
    impl_->note({card_change("added", card, user)});
    writer.put(Card{.value = card, .user = user, .registration = registration, .enrolled = now()});
    return Bound{.is_new = true, .made_user = makes_user};
  };
  const auto learn = [&](const Bound& bound) {
    if (bound.made_user) {
      impl_->memory.add_user(User{.id = user}, true);
    }
    if (bound.is_new) {
      impl_->memory.add_card(card, user, true);
    }
  };
  return impl_->change_few(write, learn).is_new;
}

void UserStore::put(const User& user) {
  const auto write = [&](SQLite::Database& open) {
    const auto before = rows::user(open, user.id);
    impl_->note(notes_of(before.has_value() ? std::optional(before->first) : std::nullopt, user));
    rows::UserWriter(open).put(user);
    return true;
  };
  impl_->change_few(write, [&](bool) { impl_->memory.add_user(user, true); });
}

std::optional<UserStore::Changed> UserStore::change_user(const UserChange& change, Which which) {
  const auto write = [&](SQLite::Database& open) -> std::optional<Changed> {
    const auto stored = rows::user(open, change.id);
    if (which == (stored.has_value() ? Which::missing : Which::there)) {
      return std::nullopt;
    }
    const bool is_damaged = stored.has_value() && !stored->second;
    Changed result;
    if (stored.has_value()) {
      result.before = stored->first;
    }
    result.after = changed(stored.has_value() ? &stored->first : nullptr, is_damaged, change);
    if (const auto fault = fault_of(result.after); !fault.empty()) {
      throw ac::ac_exception(fault, true);
    }
    if (change.schedule.has_value() && !change.schedule->empty() &&
        !rows::schedule_names(open).contains(*change.schedule)) {
      throw Failure(kFailed, fault_of_schedule(result.after));
    }
    impl_->note(notes_of(result.before, result.after));
    rows::UserWriter(open).put(result.after);
    return result;
  };
  const auto learn = [this](const std::optional<Changed>& result) {
    if (result.has_value()) {
      impl_->memory.add_user(result->after, true);
    }
  };
  return impl_->change_few(write, learn);
}

std::shared_ptr<const Schedules> UserStore::schedules() const {
  {
    const std::lock_guard lock(impl_->memory_mutex);
    if (impl_->is_loaded) {
      return impl_->schedules;
    }
  }
  auto read = impl_->with([&](SQLite::Database& open) {
    const rows::Transaction transaction(open, rows::Transaction::For::reading);
    return std::make_shared<const Schedules>(rows::schedules(open));
  });
  return read == nullptr ? std::make_shared<const Schedules>() : read;
}

std::optional<bool> UserStore::holds(const std::string& schedule, Schedules::Time time) const {
  const auto all = schedules();
  const auto* const found = all->find(schedule);
  return found == nullptr ? std::nullopt : std::optional(all->contains(*found, time));
}

void UserStore::replace_schedules(const Schedules& schedules) {
  const auto wanted = std::make_shared<const Schedules>(schedules);
  const auto write = [&](SQLite::Database& open) {
    impl_->note(notes_of_replacing(open, *wanted));
    rows::replace_schedules(open, *wanted);
    return true;
  };
  impl_->change_few(write, [&](bool) { impl_->schedules = wanted; });
}

std::vector<Entry> UserStore::plan_schedules(const Schedules& schedules) const {
  return impl_->with([&](SQLite::Database& open) {
    const rows::Transaction transaction(open, rows::Transaction::For::reading);
    return notes_of_replacing(open, schedules);
  });
}

bool UserStore::remove_schedule(const std::string& name) {
  const auto write = [&](SQLite::Database& open) {
    const auto uses = rows::schedules_in_use(open);
    if (const auto use = uses.find(name); use != uses.end()) {
      refuse_removal(name, use->second);
    }
    const bool is_there = rows::schedule_names(open).contains(name);
    if (is_there) {
      impl_->note({schedule_change("removed", {{"schedule", name}})});
    }
    rows::remove_schedule(open, name);
    return is_there;
  };
  return impl_->change_few(write, [&](bool) {
    auto left = std::make_shared<Schedules>(*impl_->schedules);
    std::erase_if(left->all, [&](const Schedule& schedule) { return schedule.name == name; });
    impl_->schedules = std::move(left);
  });
}

std::optional<UserStore::Removed> UserStore::remove_user(std::int64_t id) {
  const auto write = [&](SQLite::Database& open) -> std::optional<Removed> {
    const auto stored = rows::user(open, id);
    if (!stored.has_value()) {
      return std::nullopt;
    }
    Removed removed{.user = stored->first, .cards = rows::cards_of(open, id)};
    impl_->note(notes_of_removal(removed.user, removed.cards));
    rows::UserWriter(open).remove_user(id);
    return removed;
  };
  return impl_->change_few(write, [&](const auto&) { impl_->memory.remove_user(id); });
}

std::optional<Card> UserStore::remove_card(std::uint64_t value) {
  const auto write = [&](SQLite::Database& open) {
    auto stored = rows::card(open, value);
    if (stored.has_value()) {
      impl_->note({card_change("removed", value, stored->user)});
    }
    rows::UserWriter(open).remove_card(value);
    return stored;
  };
  return impl_->change_few(write, [&](const auto&) { impl_->memory.remove_card(value); });
}

namespace {

People all_people(SQLite::Database& open) {
  People people;
  rows::each_user(open, [&](User user, bool is_right) {
    if (!is_right) {
      people.damaged_users.insert(user.id);
    }
    people.users.push_back(std::move(user));
  });
  rows::each_card(open, [&](Card card, bool is_right) {
    if (!is_right) {
      people.damaged_cards.insert(card.value);
    }
    people.cards.push_back(std::move(card));
  });
  people.schedules = rows::schedule_names(open);
  return people;
}

void write_all(SQLite::Database& open, const PeopleChange& change) {
  rows::UserWriter writer(open);
  for (const auto card : change.cards_removed) {
    writer.remove_card(card);
  }
  for (const auto id : change.users_removed) {
    writer.remove_user(id);
  }
  for (const auto& user : change.users) {
    writer.put(user);
  }
  for (const auto& card : change.cards) {
    writer.put(card);
  }
}

}  // namespace

// Many rows are loaded anew sooner than one by one.
void UserStore::change_all(const std::function<PeopleChange(const People&)>& plan) {
  const auto write = [&](SQLite::Database& open) {
    const auto people = all_people(open);
    const auto change = plan(people);
    impl_->note(notes_of(people, change));
    write_all(open, change);
    return true;
  };
  impl_->change(write, [this](SQLite::Database& open, bool) { impl_->load_instead(open); });
}

void UserStore::rewrite(const std::function<Rewritten(SQLite::Database&)>& write) {
  const auto write_and_note = [&](SQLite::Database& open) {
    auto done = write(open);
    impl_->note(std::move(done.notes));
    return done;
  };
  impl_->change(write_and_note, [this](SQLite::Database& open, const Rewritten& done) {
    if (done.is_much) {
      impl_->load_instead(open);
      return;
    }
    const std::lock_guard lock(impl_->memory_mutex);
    if (std::exchange(impl_->is_loaded, false)) {
      impl_->learn(done.people);
      impl_->schedules = done.schedules != nullptr ? done.schedules : impl_->schedules;
      impl_->is_loaded = true;
    }
  });
}

void UserStore::look(const std::function<void(SQLite::Database&)>& read) const {
  const std::lock_guard lock(impl_->mutex);
  impl_->look(read);
}

bool UserStore::look_unless_busy(const std::function<void(SQLite::Database&)>& read) const {
  const std::unique_lock lock(impl_->mutex, std::try_to_lock);
  if (lock.owns_lock()) {
    impl_->look(read);
  }
  return lock.owns_lock();
}

std::uint64_t UserStore::changes() const { return impl_->changes; }

People UserStore::people() const {
  return impl_->with([](SQLite::Database& open) {
    const rows::Transaction transaction(open, rows::Transaction::For::reading);  // both tables as of one moment
    return all_people(open);
  });
}

std::vector<User> UserStore::users() const {
  return impl_->with([](SQLite::Database& open) {
    std::vector<User> users;
    rows::each_user(open, [&](User user, bool) { users.push_back(std::move(user)); });
    return users;
  });
}

std::vector<std::pair<User, std::int64_t>> UserStore::users_with_cards() const {
  return impl_->with([](SQLite::Database& open) {
    std::vector<std::pair<User, std::int64_t>> users;
    const rows::Transaction transaction(open, rows::Transaction::For::reading);  // both tables as of one moment
    rows::each_user(open, [&](User user, bool) { users.emplace_back(std::move(user), 0); });
    auto at = users.begin();
    rows::each_count(open, [&](std::int64_t id, std::int64_t cards) {
      at = std::find_if(at, users.end(), [id](const auto& user) { return user.first.id >= id; });
      if (at != users.end() && at->first.id == id) {
        at->second = cards;
      }
    });
    return users;
  });
}

std::vector<Card> UserStore::cards() const {
  return impl_->with([](SQLite::Database& open) {
    std::vector<Card> cards;
    rows::each_card(open, [&](Card card, bool) {
      card.enrolled = with_zone(card.enrolled);
      cards.push_back(std::move(card));
    });
    return cards;
  });
}

std::optional<User> UserStore::user(std::int64_t id) const {
  return impl_->with([id](SQLite::Database& open) {
    auto found = rows::user(open, id);
    return found.has_value() ? std::optional(std::move(found->first)) : std::nullopt;
  });
}

FoundPeople UserStore::find(const PeopleSearch& search) const {
  return impl_->with([&search](SQLite::Database& open) {
    const rows::Transaction transaction(open, rows::Transaction::For::reading);  // all as of one moment
    auto ids = rows::found(open, search, search.most + 1);
    FoundPeople found{.more = ids.size() > search.most};
    ids.resize(std::min(ids.size(), search.most));
    for (const auto id : ids) {
      auto [user, is_right] = rows::user(open, id).value();
      auto first = rows::first_cards(open, id, search, FoundPeople::kMostCards);
      for (auto& card : first) {
        card.enrolled = with_zone(card.enrolled);
      }
      found.users.push_back({std::move(user), rows::card_count(open, id), std::move(first), is_right});
    }
    found.all_users = open.execAndGet("SELECT count(*) FROM users");
    found.all_cards = open.execAndGet("SELECT count(*) FROM cards");
    return found;
  });
}

void UserStore::on_change(std::function<void(const Entry&)> callback) { impl_->on_change = std::move(callback); }

void UserStore::on_damage(std::function<void(const std::string&)> callback) { impl_->on_damage = std::move(callback); }

const std::vector<std::string>& UserStore::faults() const { return impl_->faults; }

refhost::StoreReport UserStore::inspect(const std::filesystem::path& directory) {
  const auto look = [](SQLite::Database& open, refhost::StoreReport& report) {
    const std::int64_t users = open.execAndGet("SELECT count(*) FROM users");
    const std::int64_t cards = open.execAndGet("SELECT count(*) FROM cards");
    report.content = refhost::counted(users, "user") + ", " + refhost::counted(cards, "card");
    const std::int64_t schedules = open.execAndGet("SELECT count(DISTINCT schedule) FROM windows");
    if (schedules != 0) {
      report.content += ", " + refhost::counted(schedules, "schedule");
    }
    report.faults = rows::faults(open);
  };
  return refhost::inspect_database("users", directory / kFileName, kKind, look);
}

void UserStore::seal() {
  impl_->mutex.lock();  // both for good
  impl_->memory_mutex.lock();
  impl_->database.reset();
}

}  // namespace achost
