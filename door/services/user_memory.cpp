#include "door/services/user_memory.h"

#include <algorithm>
#include <functional>
#include <utility>

namespace achost {
namespace {

constexpr auto kUserId = [](const auto& stored) { return stored.user.id; };

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
  const auto owner = place(users_, found->user, kUserId);
  if (owner == users_.end() || owner->user.id != found->user) {
    return {.kind = Holder::Kind::damaged_card};
  }
  return owner->is_right ? Holder{.kind = Holder::Kind::user, .user = &owner->user, .id = found->user}
                         : Holder{.kind = Holder::Kind::damaged_user, .id = found->user};
}

std::string UserMemory::name_of(std::int64_t user) const {
  const auto found = place(users_, user, kUserId);
  return found != users_.end() && found->user.id == user ? found->user.name : "";
}

void UserMemory::add_user(User user, bool is_right) { put(users_, StoredUser{std::move(user), is_right}, kUserId); }

void UserMemory::add_card(std::uint64_t card, std::int64_t user, bool is_right) {
  erase(is_right ? damaged_cards_ : cards_, card, &StoredCard::value);
  put(is_right ? cards_ : damaged_cards_, StoredCard{.value = card, .user = user}, &StoredCard::value);
}

void UserMemory::reserve(std::size_t users, std::size_t cards) {
  users_.reserve(users);
  cards_.reserve(cards);
}

void UserMemory::remove_user(std::int64_t id) {
  erase(users_, id, kUserId);
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
