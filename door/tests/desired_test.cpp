// What a door is to be like: taken as a whole, and held against what was changed at the door since.
#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>

#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "ac/exception.h"
#include "door/base/failure.h"
#include "door/base/maker.h"
#include "door/services/desired_state.h"
#include "door/services/people_actions.h"
#include "door/services/people_import.h"
#include "door/services/people_notes.h"
#include "door/services/people_text.h"
#include "refhost/tests/support.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Form = DesiredReader::Form;

const char* const kOffice = R"({"schedule": "office", "days": "mon-fri", "from": "08:00", "to": "18:00"})"
                            "\n";
const char* const kAna = R"({"user": 7, "name": "Ana", "cards": ["33", "34"]})"
                         "\n";
const char* const kBen = R"({"user": 8, "name": "Ben", "schedule": "office", "cards": ["44"]})"
                         "\n";
const char* const kSetting = R"({"setting": "uhf.read_interval", "value": "900"})"
                             "\n";
const char* const kNight = R"({"schedule": "night", "days": "mon-fri", "from": "22:00", "to": "06:00"})"
                           "\n";
const std::string kNobody = "{\"remove_users\": true}\n";
const std::string kAll = std::string(kAna) + kBen + kOffice + kSetting;

class Desired : public testing::Test {
 protected:
  DesiredState::Outcome take(const std::string& text, std::int64_t revision, std::optional<std::int64_t> from = {}) {
    DesiredReader reader("f", from.has_value() ? Form::difference : Form::whole);
    reader.take(text);
    return state->take(std::move(reader).result(), revision, from);
  }

  void start_anew() {
    state.reset();
    users.reset();
    users.emplace(directory.path(), UserStore::Access::read_write);
    state.emplace(*users, access);
  }

  std::string people() const { return people_as_text(users->people(), PeopleForm::json); }
  std::string value() { return settings.at("uhf.read_interval"); }

  // Each on a line: what, wanted, found.
  std::vector<std::string> differences() const {
    std::vector<std::string> all;
    const auto text = [](const std::optional<Person>& person) {
      std::string said = person.has_value() ? person->user.name : "-";
      for (const auto card : person.has_value() ? person->cards : std::vector<std::uint64_t>()) {
        said += " " + std::to_string(card);
      }
      return said;
    };
    state->each_difference([&](const DesiredState::Difference& difference) {
      if (const auto* const user = std::get_if<DesiredState::UserDifference>(&difference)) {
        all.push_back(std::to_string(user->user) + ": " + text(user->desired) + " | " + text(user->stored));
      } else {
        const auto& [kind, name, desired, stored] = std::get<DesiredState::TextDifference>(difference);
        all.push_back(kind + " " + name + ": " + desired.value_or("-") + " | " + stored.value_or("-"));
      }
      return true;
    });
    EXPECT_EQ(state->summary().differences, static_cast<std::int64_t>(all.size()));
    return all;
  }

  std::map<std::string, std::string> settings = {{"uhf.read_interval", "500"}, {"host.away_time", "10"}};
  std::function<void()> on_store = [] {};
  const SettingsAccess access{
      .value = [this](const std::string& section, const std::string& key) { return settings.at(section + "." + key); },
      .store =
          [this](const std::vector<refhost::SettingValue>& values) {
            for (const auto& [section, key, value] : values) {
              settings.at(section + "." + key) = value;
            }
            if (!values.empty()) {
              on_store();
            }
          }};
  TemporaryDirectory directory;
  std::optional<UserStore> users{std::in_place, directory.path(), UserStore::Access::read_write};
  std::optional<DesiredState> state{std::in_place, *users, access};
};

TEST_F(Desired, IsAllThatThereIsAfterwards) {
  add_user(*users, {.id = 9, .name = "Carl"});
  users->bind(44, 9, "r");
  users->bind(45, 9, "");
  take(kAll, 1);
  EXPECT_EQ(users->holder_of(33), (User{.id = 7, .name = "Ana"}));
  EXPECT_EQ(users->owner_of(44), 8);
  EXPECT_EQ(users->owner_of(45), std::nullopt);
  EXPECT_EQ(users->name_of(9), "");
  EXPECT_NE(users->schedules()->find("office"), nullptr);
  EXPECT_EQ(value(), "900");
  EXPECT_EQ(settings.at("host.away_time"), "10") << "settings that it does not name stay";
  EXPECT_EQ(users->cards().at(2).registration, "r") << "a card that goes to another user keeps what is known of it";
  EXPECT_EQ(state->taken()->revision, 1);
  take(kAna, 2);
  EXPECT_EQ(users->users().size(), 1U);
  EXPECT_NE(users->schedules()->find("office"), nullptr) << "it says nothing of schedules";
  take(std::string(kAna) + "{\"remove_schedules\": true}", 3);
  EXPECT_TRUE(users->schedules()->all.empty());
  take(kNobody, 4);
  EXPECT_TRUE(users->users().empty());
}

TEST_F(Desired, SchedulesOfWhichItSaysNothingAreTheDoorsOwn) {
  take(kAll, 1);
  take(std::string(kAna) + kBen, 2);
  EXPECT_EQ(users->user(8)->schedule, "office") << "one that is there already";
  users->replace_schedules(parse_schedules("name,days,from,to\noffice,mon,08:00,18:00\n", "f"));
  EXPECT_THAT(differences(), IsEmpty());
  take(kAna, 3, 2);
  EXPECT_THAT(differences(), IsEmpty()) << "nor does what is different from it";
  take(kOffice, 4, 3);
  users->replace_schedules(parse_schedules("name,days,from,to\noffice,mon,08:00,18:00\n", "f"));
  EXPECT_EQ(differences().size(), 1U);
}

TEST_F(Desired, OfManyIsInMemoryAtOnceToo) {
  std::string many;
  for (std::size_t i = 1; i <= kMostSingleNotes + 10; ++i) {
    many += "{\"user\": " + std::to_string(i) + ", \"name\": \"n\", \"cards\": [" + std::to_string(5 * i) + "]}\n";
  }
  std::vector<Entry> notes;
  users->on_change([&](const Entry& entry) { notes.push_back(entry); });
  take(many, 1);
  EXPECT_EQ(users->owner_of(5), 1);
  EXPECT_EQ(users->owner_of(5050), 1010);
  ASSERT_EQ(notes.size(), 2U) << "one of the people, and one of the document";
  EXPECT_EQ(notes[0].fields[0], EntryField("change", "imported"));
  EXPECT_EQ(notes[1].fields[0], EntryField("what", "desired"));
  EXPECT_EQ(notes[1].fields[1], EntryField("revision", std::int64_t{1}));
  const auto outcome = take(many, 2);
  EXPECT_EQ(outcome.users + outcome.cards + outcome.users_removed + outcome.cards_removed, 0) << "nothing is different";
}

TEST_F(Desired, EachOfAFewChangesIsNotedWithWhoseItIs) {
  take(kAll, 1);
  std::vector<std::string> notes;
  users->on_change([&](const Entry& entry) {
    notes.push_back(std::to_string(static_cast<int>(entry.kind)) + "/" + std::to_string(entry.user.value_or(0)));
    EXPECT_EQ(entry.fields.back(), EntryField("on_behalf_of", "ana"));
  });
  const MakerScope scope({.uid = 1, .name = "web", .behalf = "ana"});
  take(std::string(R"({"user": 7, "name": "Anna", "cards": ["33", "44"]})") + "\n{\"remove_user\": 8}", 2, 1);
  const auto of = [](Kind kind, int user) {
    return std::to_string(static_cast<int>(kind)) + "/" + std::to_string(user);
  };
  EXPECT_THAT(notes, ElementsAre(of(Kind::card_change, 7), of(Kind::user_change, 8), of(Kind::user_change, 7),
                                 of(Kind::card_change, 8), of(Kind::card_change, 7), of(Kind::command, 0)));
  EXPECT_EQ(state->taken()->by, "ana");
}

TEST_F(Desired, ADifferenceIsForTheRevisionThatTheDoorHasAlone) {
  EXPECT_EQ(failure_of([&] { take(kAna, 2, 1); }),
            "this is the difference from revision 1, and the door has none: send the whole document");
  take(kAll, 5);
  EXPECT_EQ(failure_of([&] { take(kAna, 6, 4); }),
            "this is the difference from revision 4, and the door has 5: send the whole document");
  take(std::string(R"({"user": 7, "cards": ["44"]})") + "\n{\"remove_setting\": \"uhf.read_interval\"}", 6, 5);
  EXPECT_EQ(users->owner_of(33), std::nullopt);
  EXPECT_EQ(users->owner_of(44), 7) << "it comes from somebody whom the difference does not name";
  EXPECT_EQ(users->name_of(8), "Ben");
  EXPECT_NE(users->schedules()->find("office"), nullptr);
  settings["uhf.read_interval"] = "1";
  EXPECT_THAT(differences(), IsEmpty()) << "that setting is the door's own again";
}

TEST_F(Desired, WhatIsWrongChangesNothing) {
  take(kAll, 1);
  const auto before = people();
  EXPECT_EQ(failure_of([&] { take(std::string(kAna) + kBen + kNight, 2); }),
            "f:2: there is no schedule \"office\" for Ben (8): give its rows, and those of all others");
  EXPECT_THAT(failure_of([&] { take(kSetting, 2); }), HasSubstr("it names no user"));
  add_user(*users, {.id = 9});
  users->change_user({.id = 9, .schedule = "office"}, UserStore::Which::there);
  EXPECT_THAT(failure_of([&] { take("{\"remove_schedules\": true}\n{\"remove_user\": 8}", 2, 1); }),
              HasSubstr("schedule office would go, and is that of user 9"));
  remove_user(*users, 9);
  on_store = [] { throw ac::ac_exception("the disk is full", true); };
  EXPECT_EQ(failure_of([&] { take(kNobody + R"({"setting": "uhf.read_interval", "value": "800"})", 2); }),
            "the disk is full");
  EXPECT_EQ(people(), before);
  EXPECT_EQ(value(), "900") << "what was set is put back";
  EXPECT_EQ(state->taken()->revision, 1);
  EXPECT_THAT(differences(), IsEmpty());
}

// As a power failure leaves it between the two files: the settings are written, the users are not.
TEST_F(Desired, HalfOfItIsPutBackAtTheNextStart) {
  take(kAll, 1);
  struct PowerFailure {};
  on_store = [] { throw PowerFailure(); };  // nothing is put back either
  const std::string wanted = kNobody + R"({"setting": "uhf.read_interval", "value": "800"})";
  EXPECT_THROW(take(wanted + "\n" + R"({"setting": "host.away_time", "value": "20"})", 2), PowerFailure);
  settings["uhf.read_interval"] = "800";
  settings["host.away_time"] = "5";  // somebody has changed it since
  on_store = [] {};
  start_anew();
  state->put_back();
  EXPECT_EQ(value(), "900");
  EXPECT_EQ(settings.at("host.away_time"), "5");
  EXPECT_EQ(state->taken()->revision, 1);
  settings["uhf.read_interval"] = "800";
  state->put_back();
  EXPECT_EQ(value(), "800") << "once";
}

TEST_F(Desired, WhoHoldsACardToTheReaderMeanwhileWaitsForNothing) {
  take(kAll, 1);
  EXPECT_EQ(state->summary().revision, 1);
  bool asked = false;
  on_store = [&] {  // within the transaction
    asked = true;
    EXPECT_EQ(users->owner_of(33), 7);
    EXPECT_EQ(users->name_of(7), "Ana");
    EXPECT_EQ(users->holds("office", std::chrono::system_clock::now()).has_value(), true);
    std::thread([&] { EXPECT_EQ(state->summary().revision, 1) << "nor does who asks how things stand"; }).join();
  };
  take(kNobody + R"({"setting": "uhf.read_interval", "value": "800"})", 2);
  EXPECT_TRUE(asked);
  EXPECT_EQ(users->owner_of(33), std::nullopt);
  EXPECT_EQ(state->summary().revision, 2);
}

TEST_F(Desired, EachWayOfChangingUsersAndCardsIsADifference) {
  take(kAll, 1);
  EXPECT_THAT(differences(), IsEmpty());
  rename_user(*users, 7, "Anna");
  EXPECT_THAT(differences(), ElementsAre("7: Ana 33 34 | Anna 33 34"));
  remove_card(*users, 34);
  users->bind(55, 9, "");
  EXPECT_THAT(differences(), ElementsAre("7: Ana 33 34 | Anna 33", "9: - |  55"));
  import_people(*users, parse_people("id,card\n8,33\n", "f"), {.move = true});
  EXPECT_THAT(differences(), ElementsAre("7: Ana 33 34 | Anna", "8: Ben 44 | Ben 33 44", "9: - |  55"));
  remove_user(*users, 8);
  EXPECT_THAT(differences(), ElementsAre("7: Ana 33 34 | Anna", "8: Ben 44 | -", "9: - |  55"));
}

TEST_F(Desired, AChangeThatIsTakenBackIsNone) {
  take(kAll, 1);
  rename_user(*users, 7, "Anna");
  remove_user(*users, 8);
  users->bind(55, 7, "");
  EXPECT_EQ(differences().size(), 2U);
  rename_user(*users, 7, "Ana");
  remove_card(*users, 55);
  users->put({.id = 8, .name = "Ben", .schedule = "office"});
  users->bind(44, 8, "another registration");
  EXPECT_THAT(differences(), IsEmpty());
}

TEST_F(Desired, AChangeThatIsTakenBackWhileDifferencesAreToldIsNone) {
  take(kAll, 1);
  rename_user(*users, 7, "Anna");
  rename_user(*users, 8, "Benn");
  std::size_t told = 0;
  state->each_difference([&](const DesiredState::Difference&) {
    rename_user(*users, 8, "Ben");
    return ++told < 10;
  });
  EXPECT_EQ(told, 1U);
}

TEST_F(Desired, DifferencesOfSchedulesAndSettingsAreToldInWords) {
  take(kAll + R"({"schedule": "", "days": "2026-12-25", "from": "", "to": ""})", 1);
  users->replace_schedules(parse_schedules("name,days,from,to\noffice,mon,08:00,18:00\nnight,mon,22:00,06:00\n", "f"));
  settings["uhf.read_interval"] = "800";
  EXPECT_THAT(differences(),
              ElementsAre("holiday 2026-12-25:  | -", "schedule office: mon-fri 08:00-18:00 | mon 08:00-18:00",
                          "schedule night: - | mon 22:00-06:00", "setting uhf.read_interval: 900 | 800"));
}

TEST_F(Desired, DifferencesSurviveARestart) {
  take(kAll, 1);
  rename_user(*users, 7, "Anna");
  start_anew();
  EXPECT_EQ(state->taken()->revision, 1);
  EXPECT_THAT(differences(), ElementsAre("7: Ana 33 34 | Anna 33 34"));
  rename_user(*users, 7, "Anne");
  EXPECT_THAT(differences(), ElementsAre("7: Ana 33 34 | Anne 33 34"));
}

TEST_F(Desired, TheWholeDocumentEndsAllDifferencesAndADifferenceThoseOfWhomItNames) {
  take(kAll, 1);
  const auto before = people();
  rename_user(*users, 7, "Anna");
  rename_user(*users, 8, "Benn");
  users->bind(55, 7, "");
  take(kAna, 2, 1);
  EXPECT_THAT(differences(), ElementsAre("8: Ben 44 | Benn 44"));
  EXPECT_EQ(users->owner_of(55), std::nullopt);
  take(kAll, 2);
  EXPECT_THAT(differences(), IsEmpty());
  EXPECT_EQ(people(), before);
}

TEST_F(Desired, ACardThatSomebodyHasMovedGoesBackToItsUser) {
  take(kAll, 1);
  import_people(*users, parse_people("id,card\n8,33\n", "f"), {.move = true});
  take(kAna, 2, 1);
  EXPECT_EQ(users->owner_of(33), 7);
  EXPECT_THAT(differences(), IsEmpty());
}

TEST_F(Desired, ACardThatWasEnrolledAtTheDoorIsNoDifferenceOnceItIsDesired) {
  take(kAll, 1);
  users->bind(55, 8, "");
  take(R"({"user": 7, "name": "Ana", "cards": ["33", "34", "55"]})", 2, 1);
  EXPECT_EQ(users->owner_of(55), 7);
  EXPECT_THAT(differences(), IsEmpty());
}

// A row that is not as it was written opens nothing.
TEST_F(Desired, WhatIsDamagedIsAsItIsToBeAgain) {
  take(kAll, 1);
  const auto damage = [this](const std::string& row) {
    SQLite::Database(directory.path() / "users.db", SQLite::OPEN_READWRITE).exec("UPDATE " + row);
    start_anew();
    EXPECT_EQ(users->holder_of(33), std::nullopt) << row;
  };
  damage("users SET sum = sum + 1 WHERE id = 7");
  take(kAna, 2, 1);
  EXPECT_EQ(users->owner_of(33), 7);
  damage("users SET sum = sum + 1 WHERE id = 7");
  take(kAll, 3);
  EXPECT_EQ(users->owner_of(33), 7);
  damage("cards SET sum = sum + 1 WHERE value = 33");
  take(kAll, 4);
  EXPECT_EQ(users->owner_of(33), 7);
}

TEST_F(Desired, WithoutADocumentNothingIsADifference) {
  users->bind(55, 9, "");
  EXPECT_THAT(differences(), IsEmpty());
  EXPECT_FALSE(state->taken().has_value());
  EXPECT_EQ(state->summary().revision, std::nullopt);
}

}  // namespace
}  // namespace achost::test
