// Changes of users and cards.
#include <chrono>

#include "ac/exception.h"
#include "door/base/failure.h"
#include "door/base/local_time.h"
#include "door/journal/changes.h"
#include "door/services/people_notes.h"
#include "door/services/user_store_impl.h"

namespace achost {
namespace {

std::string now() { return iso_time(std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now())); }

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

// Many rows are loaded anew sooner than one by one.
void UserStore::change_all(const std::function<PeopleChange(const People&)>& plan) {
  const auto write = [&](SQLite::Database& open) {
    const auto people = rows::people(open);
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

}  // namespace achost
