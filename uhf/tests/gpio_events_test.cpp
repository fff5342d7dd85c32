// Inputs: which notification opens the trigger window or the dead time, and which asks for a door.
#include "gpio_events.h"

#include <gmock/gmock.h>

#include <chrono>
#include <future>

#include "fake_clock.h"
#include "globals.h"
#include "message_handling.h"
#include "settings.h"

using second_host::Fields;
using second_host::host;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// Before any test or handler has changed it.
const bool INHIBIT_ACTIVE_AT_START = inhibitActive;

constexpr int INPUT = 5;
constexpr int RELAY = 102;

class GpioNotified : public testing::Test {
 protected:
  void SetUp() override {
    host().reset();
    fake_clock::freeze();
    trigAntiesmagGPIO = INPUT;
    tagDetectorRelayGPIO = RELAY;
    trigger_idle_ = 0;
    tagDetectorValue = 0;
    inhibitActive = false;
    uhf_operation_mode_ = CONTINUOUS;
    const std::lock_guard lock(lastTriggerTimePointMutex);
    lastTriggerTimePoint = TimePoint();
  }
  void TearDown() override { fake_clock::release(); }

  static Handled notify(int gpio, int value) {
    fake_clock::advance(std::chrono::seconds(1));
    return handle(gpioNotifiedCallback, "gpio_notified", {{"gpio", gpio}, {"value", value}});
  }

  // Whether the notification sets the time of the last trigger, and to its own time.
  static bool triggers(int gpio, int value) {
    const auto before = lastTriggerTimePoint;
    EXPECT_EQ(notify(gpio, value).failure, "");
    const bool set = lastTriggerTimePoint != before;
    EXPECT_TRUE(!set || lastTriggerTimePoint == std::chrono::steady_clock::now());
    return set;
  }
};

}  // namespace

TEST_F(GpioNotified, TriggerModeOpensTheWindowAtEachActiveLevel) {
  host().set("operation_mode", "trigger");
  EXPECT_FALSE(triggers(INPUT, 0));
  EXPECT_TRUE(triggers(INPUT, 1));
  EXPECT_TRUE(triggers(INPUT, 1)) << "each one opens it again";
  EXPECT_FALSE(triggers(INPUT, 0));
  EXPECT_FALSE(inhibitActive) << "changes in inhibit mode alone";
}

TEST_F(GpioNotified, ActiveLevelIsTheNegationOfIdle) {
  host().set("operation_mode", "trigger");
  trigger_idle_ = 1;
  EXPECT_TRUE(triggers(INPUT, 0));
  EXPECT_FALSE(triggers(INPUT, 1));
  trigger_idle_ = 7;
  EXPECT_TRUE(triggers(INPUT, 0));
  EXPECT_FALSE(triggers(INPUT, 7));
  trigger_idle_ = 0;
  EXPECT_FALSE(triggers(INPUT, 2)) << "neither level";
}

TEST_F(GpioNotified, InhibitModeMarksTheFirstReturnToIdleAlone) {
  host().set("operation_mode", "inhibit");
  EXPECT_FALSE(triggers(INPUT, 0)) << "idle without an active level before it";
  EXPECT_FALSE(triggers(INPUT, 1));
  EXPECT_TRUE(inhibitActive);
  EXPECT_FALSE(triggers(INPUT, 1));
  EXPECT_TRUE(triggers(INPUT, 0));
  EXPECT_FALSE(inhibitActive);
  EXPECT_FALSE(triggers(INPUT, 0));
}

TEST_F(GpioNotified, AnyOtherLevelThanTheActiveOneEndsAnInhibit) {
  host().set("operation_mode", "inhibit");
  notify(INPUT, 1);
  EXPECT_TRUE(triggers(INPUT, 2));
}

TEST_F(GpioNotified, ContinuousModeChangesNothing) {
  host().set("operation_mode", "continuous");
  EXPECT_FALSE(triggers(INPUT, 1));
  EXPECT_FALSE(inhibitActive);
  inhibitActive = true;
  EXPECT_FALSE(triggers(INPUT, 0));
  EXPECT_TRUE(inhibitActive);
}

TEST_F(GpioNotified, ModeIsReadAfreshFromTheStore) {
  uhf_operation_mode_ = CONTINUOUS;
  host().set("operation_mode", "TRIGGER");
  EXPECT_TRUE(triggers(INPUT, 1));
  uhf_operation_mode_ = TRIGGER;
  host().set("operation_mode", "continuous");
  EXPECT_FALSE(triggers(INPUT, 1));
  EXPECT_THAT(host().calls(), ElementsAre("get_param uhf operation_mode false", "get_param uhf operation_mode false"));
}

TEST_F(GpioNotified, AnotherInputChangesNothing) {
  host().set("operation_mode", "trigger");
  EXPECT_FALSE(triggers(INPUT + 1, 1));
  EXPECT_FALSE(triggers(RELAY, 1)) << "not even the relay's line";
  EXPECT_EQ(tagDetectorValue, 0);
  EXPECT_THAT(host().calls(), IsEmpty()) << "the mode is not even read";
}

TEST_F(GpioNotified, TheInputThatIsNotTheRelayLeavesItsStateAlone) {
  for (const auto* mode : {"trigger", "inhibit", "continuous"}) {
    host().set("operation_mode", mode);
    notify(INPUT, 1);
    EXPECT_EQ(tagDetectorValue, 0) << mode;
  }
}

TEST_F(GpioNotified, TheInputThatIsTheRelayTooKeepsItsStateInStep) {
  tagDetectorRelayGPIO = INPUT;
  for (const auto* mode : {"trigger", "inhibit", "continuous"}) {
    host().set("operation_mode", mode);
    for (const int value : {1, 0, 2}) {
      notify(INPUT, value);
      EXPECT_EQ(tagDetectorValue, value) << mode;
    }
  }
}

TEST_F(GpioNotified, WithoutItsFieldsItIsRefused) {
  host().set("operation_mode", "trigger");
  for (const Fields& fields :
       {Fields{}, Fields{{"gpio", INPUT}}, Fields{{"value", 1}}, Fields{{"gpio", INPUT}, {"value", std::int64_t{1}}},
        Fields{{"gpio", "5"}, {"value", 1}}}) {
    EXPECT_EQ(handle(gpioNotifiedCallback, "gpio_notified", fields).failure,
              "Invalid parameters for message gpio_notified");
  }
  EXPECT_EQ(handle(gpioNotifiedCallback, "another_type").failure, "Invalid parameters for message another_type");
  EXPECT_EQ(lastTriggerTimePoint, TimePoint());
  EXPECT_THAT(host().calls(), IsEmpty());
}

TEST_F(GpioNotified, IsNotMarkedHandled) {
  host().set("operation_mode", "trigger");
  EXPECT_FALSE(notify(INPUT, 1).marked());
}

TEST_F(GpioNotified, NoInhibitIsActiveAtStart) { EXPECT_FALSE(INHIBIT_ACTIVE_AT_START); }

TEST_F(GpioNotified, TheTimeIsWrittenUnderItsMutex) {
  host().set("operation_mode", "trigger");
  std::promise<void> arrived;
  host().on_call([&arrived](const std::string&) { arrived.set_value(); });
  std::unique_lock lock(lastTriggerTimePointMutex);
  auto handler = std::async(std::launch::async, [] { notify(INPUT, 1); });
  arrived.get_future().get();
  const auto soon = std::chrono::system_clock::now() + std::chrono::milliseconds(50);  // the other clock is the test's
  EXPECT_EQ(handler.wait_until(soon), std::future_status::timeout);
  EXPECT_EQ(lastTriggerTimePoint, TimePoint());
  lock.unlock();
  handler.get();
  EXPECT_NE(lastTriggerTimePoint, TimePoint());
}

TEST_F(GpioNotified, TheMutexIsFreeAfterwards) {
  host().set("operation_mode", "trigger");
  notify(INPUT, 1);
  ASSERT_TRUE(lastTriggerTimePointMutex.try_lock());
  lastTriggerTimePointMutex.unlock();
}

namespace {

class ExitRequest : public testing::Test {
 protected:
  void SetUp() override { host().reset(); }
};

}  // namespace

TEST_F(ExitRequest, ActiveZeroAsksForDoorOne) {
  const auto handled = handle(secBoxRexChangedCallback, "sec_box_rex_changed", {{"active", 0}});
  ASSERT_THAT(sentTypes(), ElementsAre("actuator_open_door"));
  EXPECT_EQ(host().messages()[0].fields, (Fields{{"id", 1}, {"reason", 1}}));
  EXPECT_EQ(host().messages()[0].argument, 0);
  EXPECT_FALSE(host().messages()[0].has_callback);
  EXPECT_FALSE(host().messages()[0].synchronous);
  EXPECT_FALSE(handled.marked());
}

TEST_F(ExitRequest, AnyOtherValueAsksForNothing) {
  for (const int active : {1, -1, 2, 256}) {
    EXPECT_FALSE(handle(secBoxRexChangedCallback, "sec_box_rex_changed", {{"active", active}}).marked());
  }
  EXPECT_THAT(sentTypes(), IsEmpty());
}

TEST_F(ExitRequest, WithoutItsFieldAsksForNothing) {
  EXPECT_EQ(handle(secBoxRexChangedCallback, "sec_box_rex_changed").failure, "");
  handle(secBoxRexChangedCallback, "sec_box_rex_changed", {{"active", "0"}});
  EXPECT_THAT(sentTypes(), IsEmpty());
}

TEST_F(ExitRequest, SendsTheLowBitsOfTheDoor) {
  forwardRex((7LL << 32) + 3);
  forwardRex(0xFFFFFFFFLL);
  EXPECT_EQ(host().messages().at(0).fields, (Fields{{"id", 3}, {"reason", 1}}));
  EXPECT_EQ(host().messages().at(1).fields, (Fields{{"id", -1}, {"reason", 1}}));
}
