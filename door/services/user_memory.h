// Users and cards in memory, for those who must not wait for a disk.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "door/services/user.h"

namespace achost {

// Tables in the order of the numbers, which are searched by halves: 16 bytes a card, 64 a user and what a name has
// beyond 15 bytes. For one thread at a time.
class UserMemory {
 public:
  // Who has a card.
  struct Holder {
    enum class Kind {
      nobody,
      user,
      damaged_card,  // what is stored of the card is not what was written, or its user is not there
      damaged_user,  // what is stored of its user is not what was written
    };
    Kind kind = Kind::nobody;
    std::optional<User> user = {};  // of the kind of that name
    std::int64_t id = 0;            // of the user, where he is known
  };

  Holder holder_of(std::uint64_t card) const;

  // Empty when he has none, or is not there.
  std::string name_of(std::int64_t user) const;

  // Make room for so many at once.
  void reserve(std::size_t users, std::size_t cards);

  // In any order; is_right: what is stored is what was written.
  void add_user(User user, bool is_right);
  void add_card(std::uint64_t card, std::int64_t user, bool is_right);

  // With all of his cards.
  void remove_user(std::int64_t id);
  void remove_card(std::uint64_t card);

 private:
  struct StoredUser {
    std::int64_t id;
    std::string name;
    std::int64_t from;
    std::int64_t until;
    std::uint32_t pause;
    std::uint16_t schedule;  // a place in schedules_
    bool blocked;
    bool is_right;
  };
  struct StoredCard {
    std::uint64_t value;
    std::int64_t user;
  };

  std::optional<std::uint16_t> place_of_schedule(const std::string& name);
  User user_of(const StoredUser& stored) const;

  std::map<std::string, std::uint16_t> places_;  // of the schedules that users have
  std::vector<std::string> schedules_{""};
  std::vector<StoredUser> users_;
  std::vector<StoredCard> cards_;
  std::vector<StoredCard> damaged_cards_;
};

}  // namespace achost
