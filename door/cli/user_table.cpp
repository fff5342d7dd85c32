#include "door/cli/user_table.h"

#include <algorithm>
#include <chrono>

#include "cli/text_table.h"
#include "door/base/local_time.h"
#include "door/control/control.h"
#include "refhost/log_entry.h"

namespace achost {
namespace {

using refhost::log::escape;

Json limit(std::int64_t time) {
  return time == 0 ? Json(nullptr) : Json(iso_time(Milliseconds(std::chrono::milliseconds(time))));
}

// users: in the order of their numbers.
std::string name_of(std::int64_t id, const std::vector<User>& users) {
  const auto found = std::ranges::lower_bound(users, id, {}, &User::id);
  return found == users.end() || found->id != id ? "" : found->name;
}

}  // namespace

std::string users_as_table(const UsersWithCards& users) {
  std::vector<std::vector<std::string>> rows = {{"USER", "CARDS", "VALID", "NAME"}};
  for (const auto& [user, count] : users) {
    rows.push_back({std::to_string(user.id), std::to_string(count), validity_of(user), escape(user.name)});
  }
  return aligned(rows);
}

std::string users_as_json(const UsersWithCards& users) {
  std::string text;
  for (const auto& [user, count] : users) {
    text += line_of({{"user", user.id},
                     {"name", user.name},
                     {"cards", count},
                     {"from", limit(user.from)},
                     {"until", limit(user.until)},
                     {"blocked", user.blocked},
                     {"schedule", user.schedule.empty() ? Json(nullptr) : Json(user.schedule)},
                     {"pause", user.pause}});
  }
  return text;
}

std::string cards_as_table(const std::vector<Card>& cards, const std::vector<User>& users) {
  std::vector<std::vector<std::string>> rows = {{"CARD", "", "USER", "NAME", "ENROLLED", "REGISTRATION"}};
  for (const auto& card : cards) {
    rows.push_back({std::to_string(card.value), hexadecimal(card.value), std::to_string(card.user),
                    escape(name_of(card.user, users)), escape(card.enrolled), escape(card.registration)});
  }
  return aligned(rows);
}

std::string cards_as_json(const std::vector<Card>& cards, const std::vector<User>& users) {
  std::string text;
  for (const auto& card : cards) {
    text += line_of({{"card", card.value},
                     {"card_hex", hexadecimal(card.value)},
                     {"user", card.user},
                     {"user_name", name_of(card.user, users)},
                     {"enrolled", card.enrolled},
                     {"registration", card.registration}});
  }
  return text;
}

}  // namespace achost
