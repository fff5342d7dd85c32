#include "door/services/people_notes.h"

#include <gmock/gmock.h>

#include "door/base/failure.h"
#include "door/cli/journal_lines.h"
#include "door/services/user_store.h"
#include "refhost/tests/support.h"

namespace achost::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PeopleNotes : public testing::Test {
 protected:
  PeopleNotes() {
    setenv("TZ", "UTC", 1);
    tzset();
    users_.on_change([this](const Entry& entry) { notes_.push_back(entry); });
  }

  // What the journal was told since the last call, as it shows it.
  std::vector<std::string> told() {
    std::vector<std::string> lines;
    for (const auto& entry : std::exchange(notes_, {})) {
      const auto [who, what] = sentence_of(entry, {});
      lines.push_back(who + " " + what);
    }
    return lines;
  }

  refhost::test::TemporaryDirectory directory_;
  UserStore users_{directory_.path(), UserStore::Access::read_write};
  std::vector<Entry> notes_;
};

TEST_F(PeopleNotes, TellWhatIsDifferentAboutAUser) {
  users_.change_user({.id = 7, .name = "Ana"}, UserStore::Which::any);
  EXPECT_THAT(told(), ElementsAre("the device made user 7: name=Ana"));
  users_.change_user({.id = 7, .name = "Ana"}, UserStore::Which::any);
  EXPECT_THAT(told(), IsEmpty()) << "as before";
  users_.change_user({.id = 7, .from = 86'400'000, .until = 172'800'000, .pause = 90}, UserStore::Which::there);
  EXPECT_THAT(told(), ElementsAre("the device changed user 7: from=1970-01-02T00:00:00.000+00:00 "
                                  "until=1970-01-03T00:00:00.000+00:00 pause=90 s"));
  users_.change_user({.id = 7, .name = "", .until = 0, .blocked = true, .pause = 0}, UserStore::Which::there);
  EXPECT_THAT(told(), ElementsAre("the device changed user 7: name=none until=none blocked=yes pause=none"));
  users_.change_user({.id = 7, .blocked = false}, UserStore::Which::there);
  users_.change_user({.id = 7, .blocked = true}, UserStore::Which::there);
  EXPECT_THAT(told(), ElementsAre("the device unblocked user 7", "the device blocked user 7"));
  users_.put({.id = 8, .name = "Bob"});
  EXPECT_THAT(told(), ElementsAre("the device made user 8: name=Bob"));
}

TEST_F(PeopleNotes, TellWhoseACardIsAndWas) {
  users_.bind(33, 7, "");
  EXPECT_THAT(told(), ElementsAre("the device made user 7", "the device added card 33 of user 7"));
  users_.bind(33, 8, "");
  EXPECT_THAT(told(), IsEmpty()) << "it is somebody's";
  users_.bind(34, 7, "");
  users_.remove_card(33);
  users_.remove_card(33);
  EXPECT_THAT(told(), ElementsAre("the device added card 34 of user 7", "the device removed card 33 of user 7"));
  users_.remove_user(7);
  users_.remove_user(7);
  EXPECT_THAT(told(),
              ElementsAre("the device removed card 34 of user 7", "the device removed user 7: name=none cards=1"));
}

TEST_F(PeopleNotes, TellOfAnImportOneByOne) {
  users_.bind(33, 7, "");
  users_.bind(34, 7, "");
  users_.put({.id = 9, .name = "Eve"});
  told();
  users_.change_all([](const People&) {
    return PeopleChange{.cards_removed = {34},
                        .users_removed = {9},
                        .users = {{.id = 7, .name = "Ana"}, {.id = 8}},
                        .cards = {{.value = 33, .user = 8}, {.value = 35, .user = 8}}};
  });
  EXPECT_THAT(told(), ElementsAre("the device removed card 34 of user 7", "the device removed user 9: name=Eve",
                                  "the device changed user 7: name=Ana", "the device made user 8",
                                  "the device removed card 33 of user 7", "the device added card 33 of user 8",
                                  "the device added card 35 of user 8"));
}

TEST_F(PeopleNotes, TellOfALargeImportInOne) {
  PeopleChange change;
  change.users = {{.id = 7}};
  while (change.cards.size() < kMostSingleNotes) {
    change.cards.push_back({.value = change.cards.size() + 1, .user = 7});
  }
  users_.change_all([&](const People&) { return change; });
  EXPECT_THAT(told(), ElementsAre("the device imported people: users=1 users_removed=0 cards=1000 cards_removed=0"));
}

TEST_F(PeopleNotes, TellNothingOfAChangeThatFails) {
  EXPECT_THROW(users_.change_user({.id = 7, .schedule = "office"}, UserStore::Which::any), Failure);
  EXPECT_THROW(users_.change_all([](const People&) -> PeopleChange { throw Failure(kFailed, "no"); }), Failure);
  users_.put({.id = 8});
  EXPECT_THAT(told(), ElementsAre("the device made user 8")) << "and nothing of before";
}

TEST_F(PeopleNotes, TellOfSchedulesAndHolidays) {
  const Window morning{.days = 31, .from = 480, .to = 720};
  const Window day{.days = 31, .from = 480, .to = 1080};
  Schedules schedules{.all = {{"office", {morning}}, {"visit", {day}}}, .holidays = {{LocalDay{}, "New Year"}}};
  users_.replace_schedules(schedules);
  EXPECT_THAT(told(), ElementsAre("the device made schedule office: mon-fri 08:00-12:00",
                                  "the device made schedule visit: mon-fri 08:00-18:00",
                                  "the device made holiday 1970-01-01: New Year"));
  schedules = {.all = {{"office", {morning, day}}}, .holidays = {{LocalDay{}, ""}}};
  EXPECT_EQ(users_.plan_schedules(schedules).size(), 3U);
  EXPECT_THAT(told(), IsEmpty()) << "a plan is no change";
  users_.replace_schedules(schedules);
  EXPECT_THAT(told(), ElementsAre("the device removed schedule visit",
                                  "the device changed schedule office: mon-fri 08:00-12:00, mon-fri 08:00-18:00",
                                  "the device changed holiday 1970-01-01"));
  users_.remove_schedule("office");
  users_.remove_schedule("office");
  EXPECT_THAT(told(), ElementsAre("the device removed schedule office"));
}

TEST_F(PeopleNotes, TellOfManyHolidaysInOne) {
  Schedules schedules;
  while (schedules.holidays.size() <= kMostSingleNotes) {
    schedules.holidays.push_back({LocalDay(std::chrono::days(schedules.holidays.size()))});
  }
  users_.replace_schedules(schedules);
  EXPECT_THAT(told(), ElementsAre("the device imported 0 schedules 1001 holidays"));
}

}  // namespace
}  // namespace achost::test
