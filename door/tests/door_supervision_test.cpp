// The door's supervision, with its threads.
#include "door/services/door_supervision.h"

#include <gmock/gmock.h>

#include "door/journal/bookkeeping.h"
#include "door/tests/real_lines.h"

namespace achost::test {
namespace {

using testing::ElementsAre;

using Texts = std::vector<std::string>;

class Supervision : public Services {
 protected:
  void begin() {
    watch({{"door_contact", {"state"}}, {"door_mode", {"mode", "by"}}, {"door_state", {"open", "reason"}}});
    supervision_.begin();
  }
  void set_text(const std::string& key, const std::string& value) { settings().override_for_run("host", key, value); }
  static void put(int line, int level) { refhost::send("gpio_set_value", {{"gpio", line}, {"value", level}}); }

  Alarms alarms_;
  Bookkeeping books_;
  GpioService gpio_;
  DoorService door_{books_};
  DoorSupervision supervision_{
      door_, gpio_, alarms_,
      [this](const std::string& section, const std::string& key) { return settings().get(section, key).value(); },
      [](const std::string& schedule, std::chrono::system_clock::time_point) {
        return schedule == "always" ? std::optional(true) : std::nullopt;
      }};
};

TEST_F(Supervision, HearsOfTheContactAndTheLock) {
  set_text("door_contact", "CONTACT");
  set("door_open_time", 600000);
  begin();
  put(kDoorContact, 1);
  EXPECT_EQ(seen(1), Texts({"door_contact state=forced"}));
  put(kDoorContact, 0);
  EXPECT_EQ(seen(2).back(), "door_contact state=closed");
  refhost::send("actuator_open_door", {{"id", 1}, {"reason", kByCommand}});
  EXPECT_EQ(seen(3).back(), "door_state open=1 reason=3");
  set_text("door_relock", "closed");
  put(kDoorContact, 1);
  EXPECT_EQ(seen(4).back(), "door_contact state=opened");
  put(kDoorContact, 0);
  EXPECT_THAT(Texts({seen(6).at(4), seen(6).at(5)}),
              testing::UnorderedElementsAre("door_contact state=closed", "door_state open=0 reason=3"))
      << "long before its time is over";
}

TEST_F(Supervision, SeesThatTimePasses) {
  set_text("door_contact", "CONTACT");
  set("door_held_warning", 1);
  set("door_handle_opens", 1);
  begin();
  put(kDoorContact, 1);
  EXPECT_EQ(seen(2), Texts({"door_contact state=opened", "door_contact state=held_warning"}));
}

TEST_F(Supervision, BringsTheModeOfTheStartIntoForceBeforeItReturns) {
  set_text("locked_schedule", "always");
  begin();
  EXPECT_TRUE(supervision_.is_locked());
  EXPECT_EQ(supervision_.report().mode.in_force, (ModeInForce{DoorMode::locked, ModeGiver::schedule}));
}

TEST_F(Supervision, LooksAtTheSettingsBySecondsAndAtOnceWhenItIsTold) {
  begin();
  set_text("door_mode", "unlocked");
  EXPECT_EQ(seen(2), Texts({"door_state open=1 reason=4", "door_mode mode=unlocked by=command"}));
  EXPECT_TRUE(supervision_.report().is_lock_open);
  set_text("door_mode", "locked");
  supervision_.look_soon();
  EXPECT_THAT(Texts({seen(4).at(2), seen(4).at(3)}),
              testing::UnorderedElementsAre("door_mode mode=locked by=command", "door_state open=0 reason=4"));
}

TEST_F(Supervision, DoesNothingBeforeTheLinesAreThoseOfTheRun) {
  set_text("door_mode", "unlocked");
  supervision_.look_soon();
  supervision_.go_by_settings();
  EXPECT_FALSE(door_.is_open());
  begin();
  EXPECT_TRUE(door_.is_open());
}

TEST_F(Supervision, TheModeSwitchGivesItsModeWhileItIsOn) {
  set_text("mode_switch", "KEY");
  begin();
  put(kModeSwitch, 1);
  EXPECT_EQ(seen(1), Texts({"door_mode mode=locked by=input"}));
  put(kModeSwitch, 0);
  EXPECT_EQ(seen(2).back(), "door_mode mode=normal by=nobody");
}

TEST_F(Supervision, AModeSwitchThatIsNotWiredGivesNone) {
  begin();
  put(kModeSwitch, 1);
  supervision_.begin_for(DoorMode::unlocked, std::chrono::hours(1));
  EXPECT_EQ(seen(2), Texts({"door_state open=1 reason=4", "door_mode mode=unlocked by=command"}));
}

TEST_F(Supervision, ARelayThatFallsInModeUnlockedIsSwitchedOnAgain) {
  set_text("door_mode", "unlocked");
  watch({{"gpio_notified", {"gpio", "value"}}});
  supervision_.begin();
  EXPECT_EQ(seen(1), Texts({"gpio_notified gpio=18 value=1"}));
  put(18, 0);
  EXPECT_EQ(seen(3),
            Texts({"gpio_notified gpio=18 value=1", "gpio_notified gpio=18 value=0", "gpio_notified gpio=18 value=1"}));
}

TEST_F(Supervision, ACommandForATimeEndsWithTheNextOne) {
  begin();
  supervision_.begin_for(DoorMode::locked, std::chrono::hours(1));
  EXPECT_TRUE(supervision_.is_locked());
  EXPECT_TRUE(supervision_.report().mode.left.has_value());
  supervision_.go_by_settings();
  EXPECT_FALSE(supervision_.is_locked());
}

// Its outputs come back at rest.
TEST_F(RealLines, OfADoorThatIsUnlockedOpenItAgainWhenTheirChipIsBack) {
  set_text("door_mode", "unlocked");
  set_text("door_contact", "SPARE");
  kernel.drive("SPARE", 1);
  auto& service = begin();
  Alarms alarms;
  const Bookkeeping books;
  DoorService door(books);
  DoorSupervision supervision(door, service, alarms, values(), [](const auto&, auto) { return std::nullopt; });
  supervision.begin();
  EXPECT_EQ(without_times(1).back(), notice(kLock, 1));
  EXPECT_EQ(supervision.report().contacts.contact, ContactState::opened) << "as it is found, and not forced";
  kernel.vanish("gpiochip0");
  troubles.wait_for(1);
  kernel.come_back("gpiochip0");
  EXPECT_THAT(without_times(3), ElementsAre(notice(kLock, 1), notice(kLock, 0), notice(kLock, 1)));
  EXPECT_EQ(kernel.voltage("LOCK"), 1);
}

}  // namespace
}  // namespace achost::test
