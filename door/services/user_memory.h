// Users and cards in memory, for those who must not wait for a disk.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "door/services/user.h"

namespace achost {

// Tables in the order of the numbers, which are searched by halves: 16 bytes a card, 72 a user and what a name has
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
    const User* user = nullptr;  // until the next change; of the last two kinds null
    std::int64_t id = 0;         // of the user, where he is known
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
    User user;
    bool is_right;
  };
  struct StoredCard {
    std::uint64_t value;
    std::int64_t user;
  };

  std::vector<StoredUser> users_;
  std::vector<StoredCard> cards_;
  std::vector<StoredCard> damaged_cards_;
};

}  // namespace achost
