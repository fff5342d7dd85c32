// Users and cards as bytes, on their way from one process to another.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "door/control/control.h"
#include "door/services/people_rows.h"
#include "door/services/user.h"

namespace achost {

using UsersWithCards = std::vector<std::pair<User, std::int64_t>>;

// What the rows of users and of cards hold, for whoever reads them.
const Json& user_columns();
const Json& card_columns();

// The same as lines of JSON: a time that is not limited is null, a card is a text, as JSON's numbers are too small for
// some.
Json json_of(const User& user, std::int64_t cards);
Json json_of(const Card& card);

std::string pack_users(const UsersWithCards& users);
std::string pack_cards(const std::vector<Card>& cards);
std::string pack_import(const PeopleImport& import);

// Each throws std::runtime_error when the bytes are not whole, or their columns are not as this program knows them.
UsersWithCards unpack_users(const Json& columns, std::string_view bytes);
std::vector<Card> unpack_cards(const Json& columns, std::string_view bytes);
PeopleImport unpack_import(std::string_view bytes);

}  // namespace achost
