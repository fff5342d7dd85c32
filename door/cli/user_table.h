// Users and cards, written out.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "door/control/packed_people.h"
#include "door/services/user.h"

namespace achost {

// In columns, with a heading.
std::string users_as_table(const UsersWithCards& users);
std::string cards_as_table(const std::vector<Card>& cards, const std::vector<User>& users);

// One JSON object a line.
std::string users_as_json(const UsersWithCards& users);
std::string cards_as_json(const std::vector<Card>& cards, const std::vector<User>& users);

}  // namespace achost
