#include "door/services/people_actions.h"

#include <algorithm>

#include "door/base/failure.h"
#include "refhost/store_report.h"

namespace achost {
namespace {

using Which = UserStore::Which;

[[noreturn]] void refuse_missing(std::int64_t id) {
  throw Failure(kFailed, "there is no user " + std::to_string(id) + ": achost user list shows all");
}

void check(const UserChange& change) {
  if (const auto fault = fault_of(changed(nullptr, false, change)); !fault.empty()) {
    throw Failure(kUsage, fault);
  }
}

UserStore::Changed change_one(UserStore& store, const UserChange& change) {
  check(change);
  auto result = store.change_user(change, Which::there);
  if (!result.has_value()) {
    refuse_missing(change.id);
  }
  return *std::move(result);
}

std::string with_validity(const std::string& text, const User& user) {
  const auto validity = validity_of(user);
  return validity.empty() ? text : text + ", " + validity;
}

}  // namespace

std::string add_user(UserStore& store, const UserChange& user) {
  check(user);
  const auto added = store.change_user(user, Which::missing);
  if (!added.has_value()) {
    const auto there = store.user(user.id);
    throw Failure(kFailed, (there.has_value() ? named(*there) : named(user.id, "")) +
                               " is there already: achost user put changes him");
  }
  return with_validity(named(added->after) + " is added", added->after);
}

std::string put_user(UserStore& store, const UserChange& user) {
  check(user);
  const auto [before, after] = store.change_user(user, Which::any).value();
  const bool is_new = !before.has_value();
  const char* const done = is_new ? " is added" : *before == after ? " is as before" : " is changed";
  return with_validity(named(after) + done, after);
}

std::string rename_user(UserStore& store, std::int64_t id, const std::string& name) {
  const auto [before, after] = change_one(store, {.id = id, .name = name});
  return named(*before) + " is now " + named(after);
}

std::string block_user(UserStore& store, std::int64_t id, bool blocked) {
  const auto [before, after] = change_one(store, {.id = id, .blocked = blocked});
  return named(after) + (blocked ? " is blocked" : " is not blocked") + (*before == after ? ", as before" : "");
}

std::string remove_user(UserStore& store, std::int64_t id) {
  const auto removed = store.remove_user(id);
  if (!removed.has_value()) {
    refuse_missing(id);
  }
  return named(removed->user) + " is removed, with " +
         refhost::counted(static_cast<std::int64_t>(removed->cards.size()), "card");
}

std::string add_card(UserStore& store, std::uint64_t card, std::int64_t user) {
  check({.id = user});
  const bool is_there = store.user(user).has_value();
  if (!store.bind(card, user, "")) {
    const auto holder = store.holder_of(card);
    throw Failure(kFailed, holder.has_value()
                               ? named_card(card) + " is of " + named(*holder) + " already: remove it first"
                               : named_card(card) + " is stored, but damaged: remove it first");
  }
  return named_card(card) + " is now of " + named(store.user(user).value_or(User{.id = user})) +
         (is_there ? "" : ", who is new");
}

std::string remove_card(UserStore& store, std::uint64_t card) {
  const auto removed = store.remove_card(card);
  if (!removed.has_value()) {
    throw Failure(kFailed, named_card(card) + " is nobody's: achost card list shows all");
  }
  return named_card(card) + " is taken from " + named(store.user(removed->user).value_or(User{.id = removed->user}));
}

ExportedPeople export_people(const UserStore& store, PeopleForm form) {
  People people = store.people();
  const auto damaged = people.damaged_users.size() + people.damaged_cards.size();
  std::erase_if(people.cards, [&](const Card& card) { return people.damaged_cards.contains(card.value); });
  for (auto& user : people.users) {
    if (people.damaged_users.contains(user.id)) {
      user = {.id = user.id, .name = user.name, .blocked = true};
    }
  }
  return {.text = people_as_text(people, form),
          .warning = damaged == 0
                         ? ""
                         : refhost::counted(static_cast<std::int64_t>(damaged), "damaged row") +
                               ": such cards are left out, and such users are blocked; achost check tells which"};
}

}  // namespace achost
