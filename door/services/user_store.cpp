#include "door/services/user_store.h"

#include <new>

#include "door/services/user_store_impl.h"
#include "refhost/log.h"

namespace achost {
namespace {

using rows::kKind;

constexpr const char* kFileName = "users.db";

}  // namespace

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
