// A text of users and cards to be imported, as CSV or as JSON lines: what is taken is written in both forms and read
// again as it was.
#include <algorithm>

#include "door/base/failure.h"
#include "door/services/people_import.h"
#include "door/services/people_text.h"
#include "input.h"

namespace {

// What is stored, once it is imported where nobody is and there are two schedules.
achost::People imported(std::string_view text, const char* name) {
  const achost::People nobody{
      .users = {}, .cards = {}, .damaged_users = {}, .damaged_cards = {}, .schedules = {"office", "=1+1, \"x\""}};
  auto change =
      achost::plan_import(achost::parse_people(text, name), nobody, {}, "2026-01-02T03:04:05.006+01:00").first;
  std::ranges::sort(change.users, {}, &achost::User::id);
  std::ranges::sort(change.cards, {}, &achost::Card::value);
  return {.users = std::move(change.users), .cards = std::move(change.cards), .damaged_users = {}, .damaged_cards = {}};
}

void require_round_trip(const achost::People& people) {
  for (const auto form : {achost::PeopleForm::csv, achost::PeopleForm::json}) {
    if (people.users.empty() && form == achost::PeopleForm::json) {
      continue;  // no line, and so no CSV either
    }
    const auto again = imported(achost::people_as_text(people, form), "again");
    fuzz::require(again.users == people.users, "no user is lost or changed");
    fuzz::require(again.cards == people.cards, "no card is lost or changed");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  achost::People people;
  try {
    people = imported({reinterpret_cast<const char*>(data), size}, "fuzz");
  } catch (const achost::Failure& failure) {
    const std::string text = failure.what();
    fuzz::require(text.starts_with("fuzz:"), "an error names the line");
    fuzz::require(text.find('\n') == text.npos, "an error is one line");
    return 0;
  }
  require_round_trip(people);
  return 0;
}
