// Users and their cards.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "refhost/store_report.h"

namespace achost {

struct User {
  std::int64_t id = 0;  // 1 or more
  std::string name;     // may be empty

  bool operator==(const User&) const = default;
};

struct Card {
  std::uint64_t value = 0;
  std::int64_t user = 0;
  std::string registration;  // as whoever enrolled it gave it; may be empty
  std::string enrolled;      // ISO 8601 with milliseconds and zone

  bool operator==(const Card&) const = default;
};

// Who may open: kept in the SQLite file users.db. Every change is durable before the call returns. Any thread may call,
// and other processes may use the same file. Each operation throws ac::ac_exception, which names the file, when the
// file cannot be read or written; nothing is changed then.
class UserStore {
 public:
  enum class Access {
    read_only,   // nothing is written; without a file there is nobody
    read_write,  // for the owner of the directory's lock: the directory (mode 0700) and the file are made when missing,
                 // and a damaged file is kept under another name
    beside_owner,  // for others: the file must be there and sound
  };

  // Open DIRECTORY/users.db. Throws refhost::NeedsOwner when only the owner can.
  UserStore(const std::filesystem::path& directory, Access access);
  ~UserStore();
  UserStore(const UserStore&) = delete;
  UserStore& operator=(const UserStore&) = delete;

  // Whose card it is; nothing when it is nobody's, or when what is stored of it is not what was written.
  std::optional<std::int64_t> owner_of(std::uint64_t card) const;

  // The name of that user; empty when he has none, or is not there.
  std::string name_of(std::int64_t user) const;

  // Give a card that is nobody's to a user, who is made when missing. False, with nothing changed, when it is
  // somebody's already.
  bool bind(std::uint64_t card, std::int64_t user, const std::string& registration);

  // Make a user, or change the name of one.
  void put(const User& user);

  // Remove a user with all of his cards, or one card; false when there is none.
  bool remove_user(std::int64_t id);
  bool remove_card(std::uint64_t card);

  // In the order of their numbers.
  std::vector<User> users() const;
  std::vector<std::pair<User, std::int64_t>> users_with_cards() const;  // with how many
  std::vector<Card> cards() const;

  // Called, with the store locked, when a card that is asked for is not as it was written; to be set before other
  // threads use the store.
  void on_damage(std::function<void(const std::string&)> callback);

  // What was wrong with the file when it was opened, a line each.
  const std::vector<std::string>& faults() const;

  // Examine all of DIRECTORY/users.db, also while a host writes there.
  static refhost::StoreReport inspect(const std::filesystem::path& directory);

  // Close the file for good, at the end of the process. A thread that calls from now on waits for that end.
  void seal();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace achost
