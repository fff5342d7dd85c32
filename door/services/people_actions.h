// What a person can do to users and cards. Each does it durably and returns what it did, one line for that person,
// which names the user and the card; or it throws Failure, with the way out, and nothing is changed.
#pragma once

#include <cstdint>
#include <string>

#include "door/services/people_text.h"
#include "door/services/user.h"
#include "door/services/user_store.h"

namespace achost {

std::string add_user(UserStore& store, const UserChange& user);
std::string put_user(UserStore& store, const UserChange& user);  // also one who is there
std::string rename_user(UserStore& store, std::int64_t id, const std::string& name);
std::string block_user(UserStore& store, std::int64_t id, bool blocked);
std::string remove_user(UserStore& store, std::int64_t id);

// The user is made when missing.
std::string add_card(UserStore& store, std::uint64_t card, std::int64_t user);
std::string remove_card(UserStore& store, std::uint64_t card);

struct ExportedPeople {
  std::string text;
  std::string warning;  // what is not in it as it is stored; empty when all is
};

// All users and cards. What is damaged is not believed: cards are left out, and of a user there is the name, blocked.
ExportedPeople export_people(const UserStore& store, PeopleForm form);

}  // namespace achost
