#include "door/control/packed_people.h"

#include <optional>
#include <stdexcept>

#include "door/control/packed_rows.h"

namespace achost {
namespace {

void expect(const Json& columns, const Json& found) {
  if (found != columns) {
    throw std::runtime_error("the host that runs is of another version than this program: start it again");
  }
}

// What is given: 1 and the value, else 0.
template <typename Value>
void add_optional(PackedRows& rows, const std::optional<Value>& value) {
  rows.add(std::int64_t{value.has_value()});
  if (value.has_value()) {
    rows.add(*value);
  }
}

std::optional<std::string> optional_text(PackedReader& rows) {
  return rows.number() == 0 ? std::nullopt : std::optional(std::string(rows.text()));
}

std::optional<std::int64_t> optional_number(PackedReader& rows) {
  return rows.number() == 0 ? std::nullopt : std::optional(rows.number());
}

PeopleImport::ForUser user_of(PackedReader& rows) {
  PeopleImport::ForUser user;
  user.line = static_cast<std::size_t>(rows.number());
  user.change.id = rows.number();
  user.change.name = optional_text(rows);
  user.change.from = optional_number(rows);
  user.change.until = optional_number(rows);
  if (const auto blocked = optional_number(rows); blocked.has_value()) {
    user.change.blocked = *blocked != 0;
  }
  user.change.schedule = optional_text(rows);
  user.change.pause = optional_number(rows);
  return user;
}

PeopleImport::ForCard card_of(PackedReader& rows) {
  PeopleImport::ForCard card;
  card.line = static_cast<std::size_t>(rows.number());
  card.value = static_cast<std::uint64_t>(rows.number());
  card.user = rows.number();
  card.registration = optional_text(rows);
  card.enrolled = optional_text(rows);
  return card;
}

}  // namespace

const Json& user_columns() {
  static const Json names = {"user", "name", "from", "until", "blocked", "schedule", "pause", "cards"};
  return names;
}

const Json& card_columns() {
  static const Json names = {"card", "user", "registration", "enrolled"};
  return names;
}

Json json_of(const User& user, std::int64_t cards) {
  const auto limit = [](std::int64_t time) { return time == 0 ? Json(nullptr) : Json(time); };
  return {
      {"user", user.id},         {"name", user.name},         {"from", limit(user.from)}, {"until", limit(user.until)},
      {"blocked", user.blocked}, {"schedule", user.schedule}, {"pause", user.pause},      {"cards", cards}};
}

Json json_of(const Card& card) {
  return {{"card", std::to_string(card.value)},
          {"user", card.user},
          {"registration", card.registration},
          {"enrolled", card.enrolled}};
}

std::string pack_users(const UsersWithCards& users) {
  PackedRows rows;
  for (const auto& [user, cards] : users) {
    rows.add(user.id);
    rows.add(user.name);
    rows.add(user.from);
    rows.add(user.until);
    rows.add(std::int64_t{user.blocked});
    rows.add(user.schedule);
    rows.add(user.pause);
    rows.add(cards);
  }
  return rows.bytes();
}

UsersWithCards unpack_users(const Json& columns, std::string_view bytes) {
  expect(user_columns(), columns);
  UsersWithCards users;
  for (PackedReader rows(bytes); !rows.is_at_end();) {
    auto& [user, cards] = users.emplace_back();
    user.id = rows.number();
    user.name = rows.text();
    user.from = rows.number();
    user.until = rows.number();
    user.blocked = rows.number() != 0;
    user.schedule = rows.text();
    user.pause = rows.number();
    cards = rows.number();
  }
  return users;
}

std::string pack_cards(const std::vector<Card>& cards) {
  PackedRows rows;
  for (const auto& card : cards) {
    rows.add(static_cast<std::int64_t>(card.value));
    rows.add(card.user);
    rows.add(card.registration);
    rows.add(card.enrolled);
  }
  return rows.bytes();
}

std::vector<Card> unpack_cards(const Json& columns, std::string_view bytes) {
  expect(card_columns(), columns);
  std::vector<Card> cards;
  for (PackedReader rows(bytes); !rows.is_at_end();) {
    Card& card = cards.emplace_back();
    card.value = static_cast<std::uint64_t>(rows.number());
    card.user = rows.number();
    card.registration = rows.text();
    card.enrolled = rows.text();
  }
  return cards;
}

std::string pack_import(const PeopleImport& import) {
  PackedRows rows;
  rows.add(import.name);
  rows.add(static_cast<std::int64_t>(import.users.size()));
  for (const auto& [change, line] : import.users) {
    rows.add(static_cast<std::int64_t>(line));
    rows.add(change.id);
    add_optional(rows, change.name);
    add_optional(rows, change.from);
    add_optional(rows, change.until);
    add_optional(rows, change.blocked.has_value() ? std::optional(std::int64_t{*change.blocked}) : std::nullopt);
    add_optional(rows, change.schedule);
    add_optional(rows, change.pause);
  }
  for (const auto& card : import.cards) {
    rows.add(static_cast<std::int64_t>(card.line));
    rows.add(static_cast<std::int64_t>(card.value));
    rows.add(card.user);
    add_optional(rows, card.registration);
    add_optional(rows, card.enrolled);
  }
  return rows.bytes();
}

PeopleImport unpack_import(std::string_view bytes) {
  PackedReader rows(bytes);
  PeopleImport import;
  import.name = rows.text();
  for (std::int64_t left = rows.number(); left > 0; --left) {
    import.users.push_back(user_of(rows));
  }
  while (!rows.is_at_end()) {
    import.cards.push_back(card_of(rows));
  }
  return import;
}

}  // namespace achost
