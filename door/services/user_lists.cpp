// Users and cards for those who look: lists, and searches.
#include <algorithm>

#include "door/base/local_time.h"
#include "door/services/user_store_impl.h"

namespace achost {

People UserStore::people() const {
  return impl_->with([](SQLite::Database& open) {
    const rows::Transaction transaction(open, rows::Transaction::For::reading);  // both tables as of one moment
    return rows::people(open);
  });
}

std::vector<User> UserStore::users() const {
  return impl_->with([](SQLite::Database& open) {
    std::vector<User> users;
    rows::each_user(open, [&](User user, bool) { users.push_back(std::move(user)); });
    return users;
  });
}

std::vector<std::pair<User, std::int64_t>> UserStore::users_with_cards() const {
  return impl_->with([](SQLite::Database& open) {
    std::vector<std::pair<User, std::int64_t>> users;
    const rows::Transaction transaction(open, rows::Transaction::For::reading);  // both tables as of one moment
    rows::each_user(open, [&](User user, bool) { users.emplace_back(std::move(user), 0); });
    auto at = users.begin();
    rows::each_count(open, [&](std::int64_t id, std::int64_t cards) {
      at = std::find_if(at, users.end(), [id](const auto& user) { return user.first.id >= id; });
      if (at != users.end() && at->first.id == id) {
        at->second = cards;
      }
    });
    return users;
  });
}

std::vector<Card> UserStore::cards() const {
  return impl_->with([](SQLite::Database& open) {
    std::vector<Card> cards;
    rows::each_card(open, [&](Card card, bool) {
      card.enrolled = with_zone(card.enrolled);
      cards.push_back(std::move(card));
    });
    return cards;
  });
}

std::optional<User> UserStore::user(std::int64_t id) const {
  return impl_->with([id](SQLite::Database& open) {
    auto found = rows::user(open, id);
    return found.has_value() ? std::optional(std::move(found->first)) : std::nullopt;
  });
}

FoundPeople UserStore::find(const PeopleSearch& search) const {
  return impl_->with([&search](SQLite::Database& open) {
    const rows::Transaction transaction(open, rows::Transaction::For::reading);  // all as of one moment
    auto ids = rows::found(open, search, search.most + 1);
    FoundPeople found{.more = ids.size() > search.most};
    ids.resize(std::min(ids.size(), search.most));
    for (const auto id : ids) {
      auto [user, is_right] = rows::user(open, id).value();
      auto first = rows::first_cards(open, id, search, FoundPeople::kMostCards);
      for (auto& card : first) {
        card.enrolled = with_zone(card.enrolled);
      }
      found.users.push_back({std::move(user), rows::card_count(open, id), std::move(first), is_right});
    }
    found.all_users = open.execAndGet("SELECT count(*) FROM users");
    found.all_cards = open.execAndGet("SELECT count(*) FROM cards");
    return found;
  });
}

std::map<std::int64_t, std::string> UserStore::names_of(const std::set<std::int64_t>& users) const {
  return impl_->with([&users](SQLite::Database& open) { return rows::names(open, users); });
}

}  // namespace achost
