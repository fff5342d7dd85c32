// Rows of users and cards, from whatever text.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "door/services/user.h"

namespace achost {

inline constexpr std::array kPeopleColumns = {"id",      "name",     "card",  "from",         "until",
                                              "blocked", "schedule", "pause", "registration", "enrolled"};

// What a row says in each of these columns; nothing where it says nothing.
using PeopleCells = std::array<std::optional<std::string>, kPeopleColumns.size()>;

// What a text wants to be stored, in its order.
struct PeopleImport {
  struct ForUser {
    UserChange change;
    std::size_t line = 0;
  };
  struct ForCard {
    std::uint64_t value = 0;
    std::int64_t user = 0;
    std::optional<std::string> registration;
    std::optional<std::string> enrolled;
    std::size_t line = 0;
  };

  std::string name;  // of the text, for messages
  std::vector<ForUser> users;
  std::vector<ForCard> cards;
};

// Takes row after row. Several rows of a user tell of several cards; what the later ones say of the user himself must
// agree with the first, or be empty.
class PeopleRows {
 public:
  explicit PeopleRows(std::string name) { import_.name = std::move(name); }

  // Throws Failure (kUsage), which begins with NAME:LINE.
  void take(const PeopleCells& cells, std::size_t line);

  PeopleImport result() && { return std::move(import_); }

 private:
  void take_user(UserChange change, std::size_t line);
  void take_card(const PeopleCells& cells, std::int64_t user, std::size_t line);

  PeopleImport import_;
  std::unordered_map<std::int64_t, std::size_t> users_;   // places in the import
  std::unordered_map<std::uint64_t, std::size_t> cards_;  // likewise
};

// A text as it stands in a file: without a byte order mark. Throws as refuse_line() does where it is no UTF-8.
std::string_view utf8_text(std::string_view text, const std::string& name);

// Throws Failure (kUsage): "NAME:LINE: text".
[[noreturn]] void refuse_line(const std::string& name, std::size_t line, const std::string& text);

}  // namespace achost
