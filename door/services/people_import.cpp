#include "door/services/people_import.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "door/base/failure.h"
#include "door/base/local_time.h"
#include "refhost/store_report.h"

namespace achost {
namespace {

// In a table in the order of the numbers; null when it is not there.
template <typename Table, typename Number, typename NumberOf>
auto* find(const Table& table, Number number, NumberOf of) {
  const auto place = std::ranges::lower_bound(table, number, {}, of);
  return place == table.end() || std::invoke(of, *place) != number ? nullptr : &*place;
}

class Planner {
 public:
  Planner(const PeopleImport& import, const People& stored, const ImportOptions& options, const std::string& now)
      : import_(import), stored_(stored), options_(options), now_(now) {}

  std::pair<PeopleChange, ImportOutcome> plan() && {
    for (const auto& wanted : import_.users) {
      take_user(wanted);
    }
    for (const auto& wanted : import_.cards) {
      take_card(wanted);
    }
    if (options_.replace) {
      remove_the_others();
    }
    const auto count = [](std::size_t all, const ImportOutcome::Counts& of) {
      return static_cast<std::int64_t>(all) - of.changed - of.moved - of.removed;
    };
    outcome_.users.unchanged = count(stored_.users.size(), outcome_.users);
    outcome_.cards.unchanged = count(stored_.cards.size(), outcome_.cards);
    return {std::move(change_), std::move(outcome_)};
  }

 private:
  [[noreturn]] void refuse(std::size_t line, const std::string& text) const {
    throw Failure(kFailed, import_.name + ":" + std::to_string(line) + ": " + text);
  }

  template <typename... Parts>
  void tell(const Parts&... parts) {
    if (options_.dry_run) {
      outcome_.lines.push_back((std::string() + ... + parts));
    }
  }

  const User* stored_user(std::int64_t id) const { return find(stored_.users, id, &User::id); }

  std::string named_user(std::int64_t id) const {
    const User* const user = stored_user(id);
    return user == nullptr ? named(id, "") : named(*user);
  }

  void take_user(const PeopleImport::ForUser& wanted) {
    const User* const before = stored_user(wanted.change.id);
    const bool is_damaged = before != nullptr && stored_.damaged_users.contains(before->id);
    const User after = changed(before, is_damaged, wanted.change);
    if (const auto fault = fault_of(after); !fault.empty()) {
      refuse(wanted.line, fault);
    }
    if (const auto& schedule = wanted.change.schedule;
        !schedule.value_or("").empty() && !stored_.schedules.contains(*schedule)) {
      refuse(wanted.line, fault_of_schedule(after));
    }
    if (before != nullptr && *before == after && !is_damaged) {
      return;
    }
    ++(before == nullptr ? outcome_.users.added : outcome_.users.changed);
    const auto validity = validity_of(after);
    tell(before == nullptr ? "add " : "change ", named(after), validity.empty() ? "" : ", " + validity);
    change_.users.push_back(after);
  }

  void take_card(const PeopleImport::ForCard& wanted) {
    const Card* const before = find(stored_.cards, wanted.value, &Card::value);
    Card after = before != nullptr ? *before : Card{.value = wanted.value, .enrolled = now_};
    after.user = wanted.user;
    after.registration = wanted.registration.value_or(after.registration);
    after.enrolled = wanted.enrolled.value_or(after.enrolled);
    const bool is_damaged = before != nullptr && stored_.damaged_cards.contains(before->value);
    if (before != nullptr && *before == after && !is_damaged) {
      return;
    }
    if (before == nullptr) {
      ++outcome_.cards.added;
      tell("add ", named_card(after.value), " of user ", std::to_string(after.user));
    } else if (before->user == after.user || is_damaged) {
      ++outcome_.cards.changed;
      tell("change ", named_card(after.value), " of user ", std::to_string(after.user));
    } else {
      move(wanted, *before);
    }
    change_.cards.push_back(std::move(after));
  }

  void move(const PeopleImport::ForCard& wanted, const Card& before) {
    if (!options_.move && !options_.replace) {
      refuse(wanted.line, named_card(wanted.value) + " is of " + named_user(before.user) +
                              " already: remove it first, or let it move with --move");
    }
    ++outcome_.cards.moved;
    tell("move ", named_card(wanted.value), " from ", named_user(before.user), " to user ",
         std::to_string(wanted.user));
  }

  void remove_the_others() {
    std::vector<std::int64_t> users;
    std::ranges::transform(import_.users, std::back_inserter(users), [](const auto& one) { return one.change.id; });
    std::ranges::sort(users);
    std::vector<std::uint64_t> cards;
    std::ranges::transform(import_.cards, std::back_inserter(cards), [](const auto& one) { return one.value; });
    std::ranges::sort(cards);
    for (const auto& card : stored_.cards) {
      if (!std::ranges::binary_search(cards, card.value)) {
        ++outcome_.cards.removed;
        tell("remove ", named_card(card.value), " of ", named_user(card.user));
        change_.cards_removed.push_back(card.value);
      }
    }
    for (const auto& user : stored_.users) {
      if (!std::ranges::binary_search(users, user.id)) {
        ++outcome_.users.removed;
        tell("remove ", named(user));
        change_.users_removed.push_back(user.id);
      }
    }
  }

  const PeopleImport& import_;
  const People& stored_;
  const ImportOptions& options_;
  const std::string& now_;
  PeopleChange change_;
  ImportOutcome outcome_;
};

}  // namespace

std::string ImportOutcome::text() const {
  const auto part = [](const Counts& of, bool may_move) {
    return refhost::grouped(of.added) + " added, " + refhost::grouped(of.changed) + " changed, " +
           (may_move ? refhost::grouped(of.moved) + " moved, " : "") + refhost::grouped(of.removed) + " removed, " +
           refhost::grouped(of.unchanged) + " as before";
  };
  return "users: " + part(users, false) + "; cards: " + part(cards, true);
}

std::pair<PeopleChange, ImportOutcome> plan_import(const PeopleImport& import, const People& stored,
                                                   const ImportOptions& options, const std::string& now) {
  return Planner(import, stored, options, now).plan();
}

ImportOutcome import_people(UserStore& store, const PeopleImport& import, const ImportOptions& options) {
  const std::string now = iso_time(std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now()));
  if (options.dry_run) {
    return plan_import(import, store.people(), options, now).second;
  }
  ImportOutcome outcome;
  store.change_all([&](const People& stored) {
    auto [change, counted] = plan_import(import, stored, options, now);
    outcome = std::move(counted);
    return std::move(change);
  });
  return outcome;
}

}  // namespace achost
