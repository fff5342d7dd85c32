// The modes of the door, at times of the test's own.
#include "door/services/door_modes.h"

#include <gmock/gmock.h>

#include <map>

#include "door/tests/service_fixture.h"

namespace achost::test {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using enum DoorMode;

using Texts = std::vector<std::string>;

TEST(DoorModeInForce, IsTheCommandsThenTheInputsThenTheSchedules) {
  const ModeWishes all{.command = normal, .input = unlocked, .is_time_to_lock = true, .is_time_to_unlock = true};
  EXPECT_EQ(mode_in_force(all), (ModeInForce{normal, ModeGiver::command}));
  auto wishes = all;
  wishes.command.reset();
  EXPECT_EQ(mode_in_force(wishes), (ModeInForce{unlocked, ModeGiver::input}));
  wishes.input.reset();
  EXPECT_EQ(mode_in_force(wishes), (ModeInForce{locked, ModeGiver::schedule})) << "what locks is over what unlocks";
  wishes.is_time_to_lock = false;
  EXPECT_EQ(mode_in_force(wishes), (ModeInForce{unlocked, ModeGiver::schedule}));
  wishes.is_time_to_unlock = false;
  EXPECT_EQ(mode_in_force(wishes), (ModeInForce{normal, ModeGiver::nobody}));
}

TEST(DoorModeInForce, HasANameThatLeadsBackToIt) {
  for (const auto mode : {normal, locked, unlocked}) {
    EXPECT_EQ(door_mode_of(name_of(mode)), mode);
  }
  EXPECT_EQ(door_mode_of("auto"), std::nullopt);
}

class Modes : public Services {
 protected:
  Modes() {
    watch({{"door_mode", {"id", "mode", "by"}}, {"alarm", {"name", "text", "standing"}}});
    settings_["door_mode"] = "auto";
    settings_["mode_switch_mode"] = "locked";
  }

  // A second later, on both clocks.
  DoorMode look(milliseconds later = seconds(1)) {
    now_ += later;
    wall_ += later;
    modes.look(now_, wall_);
    return modes.mode();
  }
  void set(const std::string& key, const std::string& value) { settings_[key] = value; }

  // Schedule "day" is from 08:00 to 18:00 of every day, UTC; "office" the same but for an hour at noon.
  static std::optional<bool> is_within(const std::string& schedule, DoorModes::WallTime at) {
    const auto time = at - std::chrono::floor<std::chrono::days>(at);
    const bool is_day = time >= hours(8) && time < hours(18);
    return schedule == "day"      ? std::optional(is_day)
           : schedule == "office" ? std::optional(is_day && (time < hours(12) || time >= hours(13)))
                                  : std::nullopt;
  }

  Alarms alarms;
  std::vector<bool> lock_;  // what it was told
  DoorModes::Time now_{hours(1000)};
  DoorModes::WallTime wall_{hours(24 * 20000 + 6)};  // at six in the morning
  std::map<std::string, std::string> settings_;
  DoorModes modes{{.settings = [this](const std::string&, const std::string& key) { return settings_[key]; },
                   .is_within = is_within,
                   .alarms = alarms,
                   .stay_open = [this](bool stays) { lock_.push_back(stays); }}};
};

TEST_F(Modes, AreNormalAndSilentWhereNobodyAsks) {
  EXPECT_EQ(look(), normal);
  EXPECT_THAT(lock_, IsEmpty());
  set("door_mode", "locked");
  look();
  EXPECT_THAT(seen(1), ElementsAre("door_mode id=1 mode=locked by=command")) << "and nothing before";
}

TEST_F(Modes, LockedMovesNoRelayAndUnlockedHoldsIt) {
  set("door_mode", "locked");
  EXPECT_EQ(look(), locked);
  EXPECT_THAT(lock_, IsEmpty());
  set("door_mode", "unlocked");
  EXPECT_EQ(look(), unlocked);
  EXPECT_EQ(look(), unlocked);
  EXPECT_THAT(lock_, ElementsAre(true));
  set("door_mode", "normal");
  EXPECT_EQ(look(), normal);
  EXPECT_THAT(lock_, ElementsAre(true, false));
  EXPECT_THAT(seen(3), ElementsAre("door_mode id=1 mode=locked by=command", "door_mode id=1 mode=unlocked by=command",
                                   "door_mode id=1 mode=normal by=command"));
}

TEST_F(Modes, OfTheSwitchHoldWhileItIsOn) {
  modes.switched(false);
  EXPECT_EQ(look(), normal);
  modes.switched(true);
  EXPECT_EQ(look(), locked);
  set("mode_switch_mode", "unlocked");
  EXPECT_EQ(look(), unlocked);
  modes.switched(false);
  EXPECT_EQ(look(), normal);
  EXPECT_THAT(lock_, ElementsAre(true, false));
}

TEST_F(Modes, OfAScheduleBeginAndEndWithIt) {
  set("unlocked_schedule", "day");
  set("locked_schedule", "night");
  EXPECT_EQ(look(), normal) << "it is six";
  EXPECT_EQ(look(hours(2)), unlocked);
  EXPECT_EQ(look(hours(10)), normal);
  EXPECT_THAT(lock_, ElementsAre(true, false));
}

TEST_F(Modes, OfSchedulesThatOverlapLock) {
  set("unlocked_schedule", "day");
  set("locked_schedule", "office");
  EXPECT_EQ(look(hours(3)), locked);
  EXPECT_EQ(look(hours(3)), unlocked) << "at noon";
  EXPECT_EQ(look(hours(1)), locked);
}

TEST_F(Modes, FollowAClockThatIsSetInEitherDirection) {
  set("unlocked_schedule", "day");
  EXPECT_EQ(look(hours(3)), unlocked);
  wall_ -= hours(5);
  EXPECT_EQ(look(), normal);
  wall_ += hours(24 * 365 + 6);
  EXPECT_EQ(look(), unlocked);
}

TEST_F(Modes, OfAScheduleThatIsNotThereAreAnAlarmAndNoMode) {
  set("unlocked_schedule", "dya");
  EXPECT_EQ(look(hours(3)), normal);
  look();
  set("locked_schedule", "nigth");
  look();
  set("locked_schedule", "");
  set("unlocked_schedule", "day");
  look();
  const std::string first =
      "host.unlocked_schedule names the schedule \"dya\", and there is none: the door is as outside of it";
  const std::string both =
      "host.locked_schedule names the schedule \"nigth\", and there is none: the door is as outside of it; " + first;
  EXPECT_THAT(seen(4), ElementsAre("alarm name=door_schedule text=" + first + " standing=1",
                                   "alarm name=door_schedule text=" + both + " standing=1",
                                   "alarm name=door_schedule text=" + both + " standing=0",
                                   "door_mode id=1 mode=unlocked by=schedule"));
}

TEST_F(Modes, OfACommandForATimeEndWithItWhateverTheClockSays) {
  set("door_mode", "locked");
  look();
  modes.begin_for(unlocked, minutes(10), now_);
  EXPECT_EQ(look(milliseconds(0)), unlocked);
  EXPECT_EQ(modes.report(now_).left, minutes(10));
  wall_ += hours(24);
  EXPECT_EQ(look(minutes(10) - milliseconds(1)), unlocked);
  EXPECT_EQ(modes.report(now_).left, milliseconds(1));
  EXPECT_EQ(look(milliseconds(1)), locked);
  EXPECT_EQ(modes.report(now_).left, std::nullopt);
}

TEST_F(Modes, OfACommandForATimeEndWithTheNextCommand) {
  modes.begin_for(unlocked, minutes(10), now_);
  look();
  set("door_mode", "locked");
  EXPECT_EQ(look(), locked);
  set("door_mode", "auto");
  EXPECT_EQ(look(), normal) << "the one for a time does not come back";
  modes.begin_for(unlocked, minutes(10), now_);
  look();
  modes.end_command();
  EXPECT_EQ(look(), normal);
  modes.begin_for(unlocked, minutes(10), now_);
  modes.begin_for(locked, minutes(1), now_);
  EXPECT_EQ(look(), locked);
}

}  // namespace
}  // namespace achost::test
