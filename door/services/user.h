// Users and their cards, as values.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace achost {

struct User {
  std::int64_t id = 0;     // 1 or more
  std::string name = {};   // UTF-8; may be empty
  std::int64_t from = 0;   // ms since 1970 UTC: from then on his cards open; 0: no limit
  std::int64_t until = 0;  // from then on they do not open any more; 0: no limit
  bool blocked = false;
  std::string schedule = {};  // his cards open while it holds; empty: always
  std::int64_t pause = 0;     // s that lie between two of his entries at least; 0: none

  bool operator==(const User&) const = default;
};

struct Card {
  std::uint64_t value = 0;
  std::int64_t user = 0;
  std::string registration = {};  // as whoever enrolled it gave it; may be empty
  std::string enrolled = {};      // ISO 8601 with milliseconds and zone

  bool operator==(const Card&) const = default;
};

// A user with all of his cards, in their order.
struct Person {
  User user;
  std::vector<std::uint64_t> cards;

  bool operator==(const Person&) const = default;
};

// What is to be different about a user; the rest stays.
struct UserChange {
  std::int64_t id = 0;
  std::optional<std::string> name = {};
  std::optional<std::int64_t> from = {};
  std::optional<std::int64_t> until = {};
  std::optional<bool> blocked = {};
  std::optional<std::string> schedule = {};
  std::optional<std::int64_t> pause = {};
};

// The user with the change; before: null of a new one. Of one who is not as he was stored nothing is believed but the
// name: what is not given is as of a new one, and he is blocked.
User changed(const User* before, bool is_damaged, const UserChange& change);

// All that is stored, in the order of the numbers.
struct People {
  std::vector<User> users;
  std::vector<Card> cards;
  std::set<std::int64_t> damaged_users;   // of them, those that are not as they were stored
  std::set<std::uint64_t> damaged_cards;  // likewise
  std::set<std::string> schedules = {};   // that there are
};

// Whom somebody looks for.
struct PeopleSearch {
  std::string text = {};   // in the name, whatever the case of a to z; a user's or a card's number; empty: all
  std::int64_t after = 0;  // the number of the last user that is known already
  std::size_t most = 50;   // users at once
};

struct FoundPeople {
  static constexpr std::size_t kMostCards = 20;  // of a user; he may have any number

  struct One {
    User user;
    std::int64_t cards = 0;        // that he has
    std::vector<Card> first = {};  // of them
    bool is_right = true;          // he is as he was stored
  };
  std::vector<One> users = {};  // in the order of their numbers
  bool more = false;            // behind them
  std::int64_t all_users = 0;   // that there are
  std::int64_t all_cards = 0;
};

// What is to become of it, in this order.
struct PeopleChange {
  std::vector<std::uint64_t> cards_removed;
  std::vector<std::int64_t> users_removed;  // with the cards they have then
  std::vector<User> users;                  // made, or as they are from now on
  std::vector<Card> cards;                  // likewise; their users are there by then

  bool is_nothing() const;
};

inline constexpr std::size_t kLongestName = 256;          // bytes
inline constexpr std::size_t kLongestRegistration = 256;  // bytes
inline constexpr std::int64_t kLongestPause = 366LL * 24 * 60 * 60;

// A time as people give it: "90 s", "5 min", "8 h"; in whole seconds.
std::string text_of_pause(std::int64_t pause);

// What is wrong with a user whose schedule is not there, with the way out.
std::string fault_of_schedule(const User& user);

// What is wrong with a user, for a person, with the way out; empty when nothing is.
std::string fault_of(const User& user);

// From what a person writes: 33 or 0x21 for a card, 1 or more for a user. Nothing when it is none.
std::optional<std::uint64_t> card_number(std::string_view text);
std::optional<std::int64_t> user_number(std::string_view text);

// For a person, in one line: "Ana (7)", or "user 7" of one without a name. Control characters are escaped.
std::string named(std::int64_t id, const std::string& name);
std::string named(const User& user);

// A card as hexadecimal digits: "0x21".
std::string hexadecimal(std::uint64_t card);

// "card 33 (0x21)".
std::string named_card(std::uint64_t card);

// When his cards open, for a person: "from 2026-01-01 00:00 until 2027-01-01 00:00, in office, 5 min between entries,
// blocked"; empty without any limit.
std::string validity_of(const User& user);

}  // namespace achost
