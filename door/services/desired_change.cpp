#include "door/services/desired_change.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "door/base/encoding.h"
#include "door/base/failure.h"
#include "door/base/local_time.h"
#include "door/journal/changes.h"
#include "door/services/desired_rows.h"
#include "door/services/people_notes.h"
#include "door/services/people_rows.h"
#include "door/services/user_rows.h"

namespace achost {
namespace {

using ForUser = DesiredDocument::ForUser;
using ForCard = DesiredDocument::ForCard;

std::int64_t count(std::size_t number) { return static_cast<std::int64_t>(number); }

// Finds first what is different, and then writes it: rows are not changed while they are read.
class Change {
 public:
  Change(SQLite::Database& open, const DesiredDocument& document) : open_(open), document_(document) {}

  void find_all();
  void find_difference();
  void write();
  void forget_earlier_changes();
  void write_schedules();
  UserStore::Rewritten result() &&;
  DesiredCounts counts() const;

 private:
  bool is_few() const {
    return users_.size() + users_removed_.size() + cards_.size() + cards_removed_.size() <= kMostSingleNotes;
  }
  void put(const ForUser& wanted, const User* before);
  void put(const ForCard& wanted, std::optional<std::int64_t> before);
  void remove_user(const User& before);
  void remove_card(std::uint64_t card, std::int64_t user);
  void find_all_users();
  void find_all_cards();
  bool gives(std::uint64_t card) const;

  SQLite::Database& open_;
  const DesiredDocument& document_;
  std::vector<const ForUser*> users_;
  std::vector<const ForCard*> cards_;
  std::vector<const ForCard*> cards_moved_;  // of them, those that are somebody's
  std::vector<std::int64_t> users_removed_;
  std::vector<std::uint64_t> cards_removed_;
  People before_;  // of those above, as long as they are few
  std::shared_ptr<const Schedules> schedules_;
  std::vector<Entry> schedule_notes_;
};

void Change::put(const ForUser& wanted, const User* before) {
  users_.push_back(&wanted);
  if (before != nullptr && is_few()) {
    before_.users.push_back(*before);
  }
}

void Change::put(const ForCard& wanted, std::optional<std::int64_t> before) {
  cards_.push_back(&wanted);
  if (!before.has_value()) {
    return;
  }
  cards_moved_.push_back(&wanted);
  if (is_few()) {
    before_.cards.push_back({.value = wanted.value, .user = *before});
  }
}

void Change::remove_user(const User& before) {
  users_removed_.push_back(before.id);
  if (is_few()) {
    before_.users.push_back(before);
  }
}

void Change::remove_card(std::uint64_t card, std::int64_t user) {
  cards_removed_.push_back(card);
  if (is_few()) {
    before_.cards.push_back({.value = card, .user = user});
  }
}

void Change::find_all() {
  find_all_users();
  find_all_cards();
}

// Both sides are in the order of the numbers.
void Change::find_all_users() {
  auto wanted = document_.users.begin();
  const auto end = document_.users.end();
  rows::each_user(open_, [&](const User& stored, bool is_right) {
    for (; wanted != end && wanted->user.id < stored.id; ++wanted) {
      put(*wanted, nullptr);
    }
    if (wanted == end || wanted->user.id != stored.id) {
      remove_user(stored);
    } else if (const auto& same = *wanted++; !is_right || same.user != stored) {
      put(same, &stored);
    }
  });
  for (; wanted != end; ++wanted) {
    put(*wanted, nullptr);
  }
}

void Change::find_all_cards() {
  auto wanted = document_.cards.begin();
  const auto end = document_.cards.end();
  rows::each_cards_user(open_, [&](std::uint64_t card, std::int64_t user, bool is_right) {
    for (; wanted != end && wanted->value < card; ++wanted) {
      put(*wanted, std::nullopt);
    }
    if (wanted == end || wanted->value != card) {
      remove_card(card, user);
    } else if (const auto& same = *wanted++; !is_right || same.user != user) {
      put(same, user);
    }
  });
  for (; wanted != end; ++wanted) {
    put(*wanted, std::nullopt);
  }
}

bool Change::gives(std::uint64_t card) const {
  return std::ranges::binary_search(document_.cards, card, {}, &ForCard::value);
}

void Change::find_difference() {
  for (const auto& wanted : document_.users) {
    const auto stored = rows::user(open_, wanted.user.id);
    if (!stored.has_value() || !stored->second || stored->first != wanted.user) {
      put(wanted, stored.has_value() ? &stored->first : nullptr);
    }
    for (const auto card : rows::cards_of(open_, wanted.user.id)) {
      if (!gives(card)) {
        remove_card(card, wanted.user.id);
      }
    }
  }
  for (const auto& wanted : document_.cards) {
    const auto stored = rows::card(open_, wanted.value);
    if (!stored.has_value() || stored->user != wanted.user) {
      put(wanted, stored.has_value() ? std::optional(stored->user) : std::nullopt);
    }
  }
  for (const auto id : document_.users_removed) {
    const auto stored = rows::user(open_, id);
    if (!stored.has_value()) {
      continue;
    }
    for (const auto card : rows::cards_of(open_, id)) {
      if (!gives(card)) {
        remove_card(card, id);
      }
    }
    remove_user(stored->first);
  }
  std::ranges::sort(before_.users, {}, &User::id);
  std::ranges::sort(before_.cards, {}, &Card::value);
}

void Change::write() {
  rows::UserWriter writer(open_);
  for (const auto* const wanted : users_) {
    writer.put(wanted->user);
  }
  const auto now = iso_time(std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now()));
  auto moved = cards_moved_.begin();
  for (const auto* const wanted : cards_) {
    Card card{.value = wanted->value, .user = wanted->user, .registration = {}, .enrolled = now};
    if (moved != cards_moved_.end() && *moved == wanted) {
      ++moved;
      const auto stored = rows::card(open_, wanted->value).value();  // what is known of it stays
      card.registration = stored.registration;
      card.enrolled = stored.enrolled;
    }
    writer.put(card);
  }
  for (const auto card : cards_removed_) {
    writer.remove_card(card);
  }
  for (const auto id : users_removed_) {
    writer.remove_user(id);
  }
}

// Of those that the document tells of, it is as it says from now on.
void Change::forget_earlier_changes() {
  for (const auto& wanted : document_.users) {
    rows::forget_change_of_user(open_, wanted.user.id);
  }
  for (const auto id : document_.users_removed) {
    rows::forget_change_of_user(open_, id);
  }
  for (const auto& wanted : document_.cards) {
    rows::forget_change_of_card(open_, wanted.value);
  }
}

// With the users as they are to be.
void Change::write_schedules() {
  const auto stored = rows::schedules(open_);
  if (document_.schedules.has_value() && *document_.schedules != stored) {
    schedule_notes_ = notes_of(stored, *document_.schedules);
    rows::replace_schedules(open_, *document_.schedules);
    schedules_ = std::make_shared<const Schedules>(*document_.schedules);
  }
  const auto names = rows::schedule_names(open_);
  for (const auto& [user, line] : document_.users) {
    if (!user.schedule.empty() && !names.contains(user.schedule)) {
      refuse_line(document_.name, line,
                  "there is no schedule " + in_quotes(user.schedule) + " for " + named(user) +
                      ": give its rows, and those of all others");
    }
  }
  if (schedules_ == nullptr) {
    return;
  }
  for (const auto& [name, user] : rows::schedules_in_use(open_)) {
    if (!names.contains(name)) {
      throw Failure(kFailed, "schedule " + name + " would go, and is that of " + named(user) +
                                 ", who was changed at the door: send the whole document");
    }
  }
}

DesiredCounts Change::counts() const {
  return {.users = count(users_.size()),
          .users_removed = count(users_removed_.size()),
          .cards = count(cards_.size()),
          .cards_removed = count(cards_removed_.size()),
          .schedules = schedules_ != nullptr};
}

UserStore::Rewritten Change::result() && {
  UserStore::Rewritten done{.is_much = !is_few(), .schedules = schedules_};
  if (done.is_much) {
    const auto all = counts();
    done.notes = {user_change("imported", {},
                              {{"users", all.users},
                               {"users_removed", all.users_removed},
                               {"cards", all.cards},
                               {"cards_removed", all.cards_removed}})};
  } else {
    auto& people = done.people;
    std::ranges::transform(users_, std::back_inserter(people.users), [](const auto* wanted) { return wanted->user; });
    std::ranges::transform(cards_, std::back_inserter(people.cards),
                           [](const auto* wanted) { return Card{.value = wanted->value, .user = wanted->user}; });
    people.cards_removed = std::move(cards_removed_);
    people.users_removed = std::move(users_removed_);
    done.notes = notes_of(before_, people);
  }
  std::ranges::move(schedule_notes_, std::back_inserter(done.notes));
  return done;
}

}  // namespace

UserStore::Rewritten make_as_desired(SQLite::Database& open, const DesiredDocument& document, bool is_difference,
                                     DesiredCounts& counts) {
  Change change(open, document);
  if (is_difference) {
    change.find_difference();
    change.forget_earlier_changes();
  } else {
    change.find_all();
    rows::forget_changes(open);
  }
  change.write();
  change.write_schedules();
  counts = change.counts();
  return std::move(change).result();
}

}  // namespace achost
