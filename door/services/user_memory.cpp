#include "door/services/user_memory.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <utility>

namespace achost {
namespace {

// Where it stands, or would stand.
template <typename Table, typename Number, typename NumberOf>
auto place(Table& table, Number number, NumberOf of) {
  return std::ranges::lower_bound(table, number, {}, of);
}

// At its place, over the one that has its number. Rows that come in their order are appended.
template <typename Table, typename Row, typename NumberOf>
void put(Table& table, Row row, NumberOf of) {
  const auto number = std::invoke(of, row);
  const auto at = table.empty() || std::invoke(of, table.back()) < number ? table.end() : place(table, number, of);
  if (at != table.end() && std::invoke(of, *at) == number) {
    *at = std::move(row);
  } else {
    table.insert(at, std::move(row));
  }
}

template <typename Table, typename Number, typename NumberOf>
bool has(Table& table, Number number, NumberOf of) {
  const auto at = place(table, number, of);
  return at != table.end() && std::invoke(of, *at) == number;
}

template <typename Table, typename Number, typename NumberOf>
void erase(Table& table, Number number, NumberOf of) {
  if (const auto at = place(table, number, of); at != table.end() && std::invoke(of, *at) == number) {
    table.erase(at);
  }
}

}  // namespace

UserMemory::Holder UserMemory::holder_of(std::uint64_t card) const {
  const auto found = place(cards_, card, &StoredCard::value);
  if (found == cards_.end() || found->value != card) {
    const bool is_damaged = has(damaged_cards_, card, &StoredCard::value);
    return {.kind = is_damaged ? Holder::Kind::damaged_card : Holder::Kind::nobody};
  }
  const auto owner = place(users_, found->user, &StoredUser::id);
  if (owner == users_.end() || owner->id != found->user) {
    return {.kind = Holder::Kind::damaged_card};
  }
  return owner->is_right ? Holder{.kind = Holder::Kind::user, .user = user_of(*owner), .id = found->user}
                         : Holder{.kind = Holder::Kind::damaged_user, .id = found->user};
}

std::string UserMemory::name_of(std::int64_t user) const {
  const auto found = place(users_, user, &StoredUser::id);
  return found != users_.end() && found->id == user ? found->name : "";
}

// Nothing when there are more than a place can tell, which only a damaged file has.
std::optional<std::uint16_t> UserMemory::place_of_schedule(const std::string& name) {
  constexpr std::size_t kMost = std::numeric_limits<std::uint16_t>::max();
  if (name.empty()) {
    return 0;
  }
  if (const auto found = places_.find(name); found != places_.end()) {
    return found->second;
  }
  if (schedules_.size() > kMost) {
    return std::nullopt;
  }
  const auto place = static_cast<std::uint16_t>(schedules_.size());
  schedules_.push_back(name);
  places_.emplace(name, place);
  return place;
}

User UserMemory::user_of(const StoredUser& stored) const {
  return {.id = stored.id,
          .name = stored.name,
          .from = stored.from,
          .until = stored.until,
          .blocked = stored.blocked,
          .schedule = schedules_.at(stored.schedule),
          .pause = stored.pause};
}

void UserMemory::add_user(User user, bool is_right) {
  const auto schedule = place_of_schedule(user.schedule);
  put(users_,
      StoredUser{.id = user.id,
                 .name = std::move(user.name),
                 .from = user.from,
                 .until = user.until,
                 .pause = static_cast<std::uint32_t>(user.pause),
                 .schedule = schedule.value_or(0),
                 .blocked = user.blocked,
                 .is_right = is_right && schedule.has_value()},
      &StoredUser::id);
}

void UserMemory::add_card(std::uint64_t card, std::int64_t user, bool is_right) {
  erase(is_right ? damaged_cards_ : cards_, card, &StoredCard::value);
  put(is_right ? cards_ : damaged_cards_, StoredCard{.value = card, .user = user}, &StoredCard::value);
}

void UserMemory::reserve(std::size_t users, std::size_t cards) {
  users_.reserve(users);
  cards_.reserve(cards);
}

void UserMemory::remove_user(std::int64_t id) {
  erase(users_, id, &StoredUser::id);
  for (auto* const table : {&cards_, &damaged_cards_}) {
    std::erase_if(*table, [id](const StoredCard& card) { return card.user == id; });
  }
}

void UserMemory::remove_card(std::uint64_t card) {
  for (auto* const table : {&cards_, &damaged_cards_}) {
    erase(*table, card, &StoredCard::value);
  }
}

}  // namespace achost
