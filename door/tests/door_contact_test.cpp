// What a door with a contact does, at times of the test's own.
#include "door/services/door_contact.h"

#include <gmock/gmock.h>

namespace achost {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using enum ContactState;

class Contact : public testing::Test {
 protected:
  // Times are in seconds from the start.
  static DoorContact::Time at(double time) {
    return DoorContact::Time(std::chrono::hours(1)) + milliseconds(static_cast<std::int64_t>(time * 1000));
  }
  std::optional<ContactState> opens(double time) { return door.moved(true, at(time), limits); }
  std::optional<ContactState> shuts(double time) { return door.moved(false, at(time), limits); }
  std::vector<ContactState> look(double time) { return door.look(at(time), limits); }
  void release(double from, double to, bool is_for_somebody = true) {
    look(from);
    door.released();
    look(to);
    door.locked(is_for_somebody, at(to));
  }

  DoorContact::Limits limits;
  DoorContact door{false, at(0)};
};

TEST_F(Contact, OfADoorThatIsReleasedAndUsedSaysSo) {
  door.released();
  EXPECT_EQ(opens(1), opened);
  EXPECT_EQ(door.state(), opened);
  door.locked(true, at(3));
  EXPECT_EQ(shuts(4), closed);
  EXPECT_EQ(door.state(), closed);
  EXPECT_THAT(look(1000), IsEmpty());
}

TEST_F(Contact, ThatOpensWithoutAReleaseIsForcedUntilItShuts) {
  EXPECT_EQ(opens(1), forced);
  EXPECT_THAT(look(1000), IsEmpty()) << "that is more than standing open";
  EXPECT_EQ(door.state(), forced);
  release(1001, 1002);
  EXPECT_EQ(door.state(), forced) << "a release afterwards does not make it good";
  EXPECT_EQ(shuts(1003), closed);
}

TEST_F(Contact, HasAMomentOfGraceAfterTheLockHasClosed) {
  release(1, 4);
  EXPECT_EQ(opens(4.999), opened);
  EXPECT_EQ(shuts(5.1), closed);
  EXPECT_EQ(opens(5.2), forced) << "the grace is over, whoever has been through meanwhile";
  shuts(6);
  release(10, 13);
  EXPECT_EQ(opens(14), forced);
  limits.grace = seconds(0);
  shuts(15);
  release(20, 23);
  EXPECT_EQ(opens(23), forced);
}

TEST_F(Contact, OfADoorWithAHandleIsNeverForced) {
  limits.opens_by_handle = true;
  EXPECT_EQ(opens(1), opened);
  EXPECT_THAT(look(31), ElementsAre(held_warning)) << "and yet it is not to stand open";
}

TEST_F(Contact, ThatStandsOpenIsAWarningFirstAndThenAnAlarmEachOnce) {
  door.released();
  opens(1);
  door.locked(true, at(4));
  EXPECT_THAT(look(33.999), IsEmpty());
  EXPECT_THAT(look(34), ElementsAre(held_warning)) << "counted from when the lock has closed";
  EXPECT_THAT(look(63), IsEmpty());
  EXPECT_EQ(door.state(), held_warning);
  EXPECT_THAT(look(64), ElementsAre(held_alarm));
  EXPECT_THAT(look(1000), IsEmpty());
  EXPECT_EQ(door.state(), held_alarm);
  EXPECT_EQ(shuts(1001), closed);
  EXPECT_THAT(look(2000), IsEmpty());
}

TEST_F(Contact, ThatIsLookedAtLateHasBoth) {
  release(0, 1);
  opens(1.5);
  EXPECT_THAT(look(100), ElementsAre(held_warning, held_alarm));
}

TEST_F(Contact, CountsFromTheOpeningWhereThatIsLater) {
  release(0, 1);
  opens(1.9);
  EXPECT_THAT(look(31.8), IsEmpty());
  EXPECT_THAT(look(31.9), ElementsAre(held_warning));
}

TEST_F(Contact, MayStandOpenForAsLongAsTheLockDoes) {
  door.released();
  opens(1);
  EXPECT_THAT(look(10000), IsEmpty());
  door.locked(false, at(10000));
  EXPECT_THAT(look(10029), IsEmpty());
  EXPECT_THAT(look(10030), ElementsAre(held_warning));
}

TEST_F(Contact, CountsAnewAfterAnotherReleaseButAWarningStands) {
  release(0, 1);
  opens(1.5);
  look(32);
  EXPECT_EQ(door.state(), held_warning);
  release(40, 43);
  EXPECT_EQ(door.state(), held_warning);
  EXPECT_THAT(look(102), IsEmpty());
  EXPECT_THAT(look(103), ElementsAre(held_alarm));
}

TEST_F(Contact, WithoutALimitIsNeverHeldOpen) {
  limits.warning = seconds(0);
  release(0, 1);
  opens(1.5);
  EXPECT_THAT(look(61.5), ElementsAre(held_alarm));
  shuts(70);
  limits.alarm = seconds(0);
  release(80, 81);
  opens(81.5);
  EXPECT_THAT(look(10000), IsEmpty());
}

TEST_F(Contact, OfADoorThatStoodOpenAtTheStartWasNotForced) {
  door = DoorContact(true, at(10));
  EXPECT_EQ(door.state(), opened);
  EXPECT_EQ(opens(11), std::nullopt);
  EXPECT_THAT(look(40), ElementsAre(held_warning));
}

TEST_F(Contact, SaysNothingTwice) {
  EXPECT_EQ(shuts(1), std::nullopt);
  EXPECT_EQ(opens(2), forced);
  EXPECT_EQ(opens(3), std::nullopt);
}

TEST_F(Contact, OfAReleaseThatNobodyUsesSaysSoWhenTheGraceIsOver) {
  release(0, 3);
  EXPECT_THAT(look(3.999), IsEmpty());
  EXPECT_THAT(look(4), ElementsAre(not_used));
  EXPECT_EQ(door.state(), closed);
  EXPECT_THAT(look(5), IsEmpty());
}

TEST_F(Contact, OfAReleaseThatIsUsedInTheGraceSaysNothing) {
  release(0, 3);
  opens(3.5);
  shuts(3.6);
  EXPECT_THAT(look(5), IsEmpty());
}

TEST_F(Contact, OfADoorThatWasOpenAlreadyDoesNotMissItsUse) {
  release(0, 1);
  opens(1.1);
  release(2, 5);
  shuts(5.5);
  EXPECT_THAT(look(8), IsEmpty());
}

TEST_F(Contact, OfATestOrAModeMissesNoUse) {
  release(0, 3, false);
  EXPECT_THAT(look(10), IsEmpty());
}

TEST_F(Contact, OfAReleaseSoonAfterAnotherCountsTheLast) {
  release(0, 3);
  release(3.5, 6);
  EXPECT_THAT(look(6.9), IsEmpty());
  EXPECT_THAT(look(7), ElementsAre(not_used));
}

TEST_F(Contact, StatesHaveNamesOfTheirOwn) {
  EXPECT_EQ(name_of(closed), "closed");
  EXPECT_EQ(name_of(not_used), "not_used");
}

}  // namespace
}  // namespace achost
