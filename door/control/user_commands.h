// What can be asked about users and cards.
#pragma once

#include <vector>

#include "door/control/stores.h"

namespace achost {

// user_list, user_add, user_put, user_rename, user_block, user_remove, user_import, user_plan, user_export, card_list,
// card_add and card_remove. What changes one user or card says in "done" what it did, for a person. The lists are
// rows of JSON, or packed as their answer's "columns" say; an import is a text, or as packed_people.h has it; user_plan
// is one that only says what it would do. A card is a text: JSON's numbers are too small for some.
std::vector<ControlCommand> user_commands(Stores& stores);

}  // namespace achost
