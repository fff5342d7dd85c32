// What comes of the door's contacts, at times of the test's own.
#include "door/services/door_watch.h"

#include <gmock/gmock.h>

#include <map>

#include "door/services/door_service.h"
#include "door/tests/service_fixture.h"

namespace achost::test {
namespace {

using std::chrono::hours;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

class Watch : public Services {
 protected:
  Watch() { Services::watch({{"door_contact", {"id", "state"}}, {"alarm", {"name", "standing"}}}); }

  DoorWatch::Time at(int time) const { return DoorWatch::Time(hours(1)) + seconds(time); }
  void begin() {
    watch_.begin([this](int line) { return levels_[line]; }, at(0));
  }
  void contact(int level, int time) { watch_.line_changed(kDoorContact, level, at(time)); }
  void tamper(int level, int time) { watch_.line_changed(kTamperContact, level, at(time)); }

  Alarms alarms_;
  bool is_released_ = false;
  std::vector<DoorWatch::Time> uses_;
  std::map<int, int> levels_;
  std::map<std::string, std::string> settings_ = {
      {"door_contact", "CONTACT"}, {"tamper_contact", "CASE"}, {"door_grace", "1000"},    {"door_held_warning", "30"},
      {"door_held_alarm", "60"},   {"door_relock", "time"},    {"door_handle_opens", "0"}};
  DoorWatch watch_{{.settings = [this](const std::string&, const std::string& key) { return settings_.at(key); },
                    .alarms = alarms_,
                    .is_released = [this] { return is_released_; },
                    .close_after_use = [this](DoorWatch::Time opened) { uses_.push_back(opened); }}};
};

TEST_F(Watch, AForcedDoorIsAnAlarmUntilItIsShut) {
  begin();
  contact(1, 1);
  contact(0, 2);
  EXPECT_THAT(seen(4), ElementsAre("door_contact id=1 state=forced", "alarm name=door_forced standing=1",
                                   "door_contact id=1 state=closed", "alarm name=door_forced standing=0"));
}

TEST_F(Watch, ADoorThatIsLeftOpenIsAWarningAndThenAnAlarmUntilItIsShut) {
  begin();
  watch_.lock_moved(true, kExitRequest, at(0));
  contact(1, 1);
  watch_.lock_moved(false, kExitRequest, at(3));
  watch_.look(at(33));
  EXPECT_EQ(watch_.report().contact, ContactState::held_warning);
  watch_.look(at(63));
  contact(0, 70);
  EXPECT_THAT(seen(6), ElementsAre("door_contact id=1 state=opened", "door_contact id=1 state=held_warning",
                                   "door_contact id=1 state=held_alarm", "alarm name=door_held standing=1",
                                   "door_contact id=1 state=closed", "alarm name=door_held standing=0"));
}

TEST_F(Watch, AReleaseThatNobodyUsesIsTold) {
  begin();
  watch_.lock_moved(true, kIdentification, at(0));
  watch_.lock_moved(false, kIdentification, at(3));
  watch_.look(at(4));
  EXPECT_THAT(seen(1), ElementsAre("door_contact id=1 state=not_used"));
}

TEST_F(Watch, ATestOfTheRelayAndAModeAwaitNobody) {
  begin();
  for (const int reason : {kRelayTest, kByMode}) {
    watch_.lock_moved(true, reason, at(0));
    watch_.lock_moved(false, reason, at(3));
    watch_.look(at(10));
  }
  contact(1, 11);
  EXPECT_EQ(seen(1).at(0), "door_contact id=1 state=forced") << "and nothing before";
}

// Messages of the line and of the lock come on different ways.
TEST_F(Watch, ALockThatIsOpenCountsBeforeItsMessageHasCome) {
  begin();
  is_released_ = true;
  contact(1, 1);
  watch_.lock_moved(true, kIdentification, at(2));
  watch_.lock_moved(false, kIdentification, at(3));
  contact(0, 4);
  watch_.look(at(10));
  contact(1, 11);
  EXPECT_THAT(seen(3), ElementsAre("door_contact id=1 state=opened", "door_contact id=1 state=closed",
                                   "door_contact id=1 state=opened"));
}

TEST_F(Watch, TheLockIsClosedAfterAUseWhereThatIsAskedFor) {
  begin();
  is_released_ = true;
  contact(1, 1);
  contact(0, 2);
  EXPECT_THAT(uses_, IsEmpty());
  settings_["door_relock"] = "closed";
  contact(1, 3);
  EXPECT_THAT(uses_, IsEmpty());
  contact(0, 4);
  EXPECT_THAT(uses_, ElementsAre(at(3)));
}

TEST_F(Watch, AHandleThatOpensForcesNothing) {
  settings_["door_handle_opens"] = "1";
  begin();
  contact(1, 1);
  EXPECT_THAT(seen(1), ElementsAre("door_contact id=1 state=opened"));
}

TEST_F(Watch, AnOpenCaseIsAnAlarmUntilItIsShut) {
  levels_[kTamperContact] = 1;
  begin();
  EXPECT_EQ(watch_.report().is_case_open, true);
  tamper(0, 1);
  EXPECT_EQ(watch_.report().is_case_open, false);
  tamper(1, 2);
  EXPECT_THAT(seen(3), ElementsAre("alarm name=tamper standing=1", "alarm name=tamper standing=0",
                                   "alarm name=tamper standing=1"));
}

TEST_F(Watch, ADoorThatStandsOpenAtTheStartIsNotForced) {
  levels_[kDoorContact] = 1;
  begin();
  contact(1, 1);
  EXPECT_EQ(watch_.report().contact, ContactState::opened);
  contact(0, 2);
  EXPECT_THAT(seen(1), ElementsAre("door_contact id=1 state=closed"));
}

TEST_F(Watch, AContactCountsWhereASettingGivesItALineAndFromTheBeginningOn) {
  contact(1, 1);
  settings_["door_contact"] = settings_["tamper_contact"] = "";
  begin();
  contact(1, 1);
  tamper(1, 1);
  watch_.lock_moved(true, kIdentification, at(1));
  watch_.look(at(1000));
  EXPECT_EQ(watch_.report().contact, std::nullopt);
  EXPECT_EQ(watch_.report().is_case_open, std::nullopt);
  settings_["door_contact"] = "17";
  begin();
  contact(1, -1);
  EXPECT_EQ(watch_.report().contact, ContactState::closed) << "what was before the beginning is over";
  contact(1, 5);
  EXPECT_EQ(watch_.report().contact, ContactState::forced);
  EXPECT_EQ(seen(1).at(0), "door_contact id=1 state=forced");
}

}  // namespace
}  // namespace achost::test
