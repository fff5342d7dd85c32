// The schedules in which users' cards open.
#include "door/base/failure.h"
#include "door/journal/changes.h"
#include "door/services/people_notes.h"
#include "door/services/user_store_impl.h"

namespace achost {
namespace {

[[noreturn]] void refuse_removal(const std::string& schedule, const User& user) {
  throw Failure(kFailed, "schedule " + schedule + " is that of " + named(user) +
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

}  // namespace achost
