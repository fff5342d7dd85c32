#include "door/gpio/chip_lines.h"

#include <gmock/gmock.h>

#include "door/gpio/kept_plan.h"
#include "door/gpio/on_chip.h"
#include "door/tests/real_lines.h"

namespace achost::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

TEST_F(RealLines, AreRequestedAtTheStartWithTheirAttributesAndAConsumersName) {
  kernel.drive("LOCK", 1);
  kernel.drive("RST", 0);
  begin();
  EXPECT_EQ(kernel.voltage("LOCK"), 0) << "at rest";
  EXPECT_EQ(kernel.voltage("RST"), 1) << "at rest, of an output that is active while low";
  const auto button = kernel.request_of("REX");
  EXPECT_STREQ(button.consumer, "achost exit_button");
  EXPECT_EQ(button.config.flags, GPIO_V2_LINE_FLAG_INPUT | GPIO_V2_LINE_FLAG_EDGE_RISING |
                                     GPIO_V2_LINE_FLAG_EDGE_FALLING | GPIO_V2_LINE_FLAG_ACTIVE_LOW |
                                     GPIO_V2_LINE_FLAG_BIAS_PULL_UP);
  ASSERT_EQ(button.config.num_attrs, 1U);
  EXPECT_EQ(button.config.attrs[0].attr.id, GPIO_V2_LINE_ATTR_ID_DEBOUNCE);
  EXPECT_EQ(button.config.attrs[0].attr.debounce_period_us, 20000U);
  EXPECT_EQ(kernel.request_of("TRIG").config.num_attrs, 0U);
  EXPECT_EQ(kernel.request_of("LOCK").config.flags, GPIO_V2_LINE_FLAG_OUTPUT);
}

TEST_F(RealLines, PressOfTheExitButtonIsARequestWithTheKernelsTime) {
  kernel.drive("REX", 1);  // nobody presses
  begin();
  kernel.drive("REX", 0, 1234567890);
  kernel.drive("REX", 1, 1334567890);
  EXPECT_THAT(seen(2),
              ElementsAre("sec_box_rex_changed active=0 at=1234567890", "sec_box_rex_changed active=1 at=1334567890"));
}

TEST_F(RealLines, TriggerInputHasItsNumberOnTheBus) {
  auto& service = begin();
  kernel.drive("TRIG", 1, 7);
  EXPECT_THAT(seen(1), ElementsAre(notice(kTrigger, 1) + " at=7"));
  EXPECT_EQ(service.levels()[kTrigger], 1);
}

TEST_F(RealLines, LevelsOfInputsAreKnownFromTheStartAndNotTold) {
  kernel.drive("TRIG", 1);
  auto& service = begin();
  EXPECT_EQ(service.levels()[kTrigger], 1);
  EXPECT_EQ(service.levels()[kExitButton], 1) << "low is pressed";
  kernel.drive("TRIG", 0, 7);
  EXPECT_THAT(seen(1), ElementsAre(notice(kTrigger, 0) + " at=7"));
}

TEST_F(RealLines, OutputMovesAndIsTold) {
  auto& service = begin();
  put(kLock, 1);
  put(kReaderReset, 1);
  EXPECT_THAT(without_times(2), ElementsAre(notice(kLock, 1), notice(kReaderReset, 1)));
  EXPECT_EQ(kernel.voltage("LOCK"), 1);
  EXPECT_EQ(kernel.voltage("RST"), 0);
  EXPECT_EQ(service.levels()[kLock], 1);
}

TEST_F(RealLines, InputIsMovedByNothingButItsWire) {
  auto& service = begin();
  put(kTrigger, 1);
  put(40, 1);
  EXPECT_THAT(without_times(1), ElementsAre(notice(40, 1))) << "a line without a wire is a virtual one";
  EXPECT_EQ(service.levels()[kTrigger], 0);
}

TEST_F(RealLines, AreAtRestAtTheEnd) {
  begin();
  put(kLock, 1);
  seen(1);
  end();
  EXPECT_EQ(kernel.voltage("LOCK"), 0);
}

TEST_F(RealLines, AreAtRestOnceForAll) {
  auto& service = begin();
  put(kLock, 1);
  seen(1);
  service.lines().rest();
  EXPECT_EQ(kernel.voltage("LOCK"), 0);
  put(kReaderReset, 1);
  put(40, 1);
  EXPECT_THAT(without_times(2).back(), notice(40, 1));
  EXPECT_EQ(kernel.voltage("RST"), 1) << "nothing moves after the rest";
}

TEST_F(RealLines, AreAtRestAtAnEndWithoutLocks) {
  begin();
  put(kLock, 1);
  seen(1);
  ChipLines::rest_at_once();
  EXPECT_EQ(kernel.voltage("LOCK"), 0);
  end();
  ChipLines::rest_at_once();  // there are none
}

TEST_F(RealLines, LockThatIsOpenWithoutPowerHasItAtRest) {
  set_text("door_fail", "safe");
  begin();
  EXPECT_EQ(kernel.voltage("LOCK"), 1);
  put(kLock, 1);
  EXPECT_THAT(without_times(1), ElementsAre(notice(kLock, 1)));
  EXPECT_EQ(kernel.voltage("LOCK"), 0) << "open";
  end();
  EXPECT_EQ(kernel.voltage("LOCK"), 1);
}

TEST_F(RealLines, ChangeOfWhatTheLockDoesWithoutPowerIsInForceAtOnce) {
  auto& service = begin();
  set_text("door_fail", "safe");
  service.lines().settings_changed();
  EXPECT_EQ(kernel.voltage("LOCK"), 1);
}

TEST_F(RealLines, OutputHasItsOwnLevelAtRest) {
  set_text("relay_3", "SPARE rest=1");
  auto& service = begin();
  EXPECT_EQ(kernel.voltage("SPARE"), 1);
  EXPECT_EQ(service.levels()[19], 1);
  put(19, 0);
  seen(1);
  end();
  EXPECT_EQ(kernel.voltage("SPARE"), 1);
}

TEST_F(RealLines, ThatIsTakenIsRefusedWithItsNameAndItsConsumer) {
  kernel.take("REX", "keyboard");
  EXPECT_THAT(failure_of([this] { lines(); }),
              HasSubstr("gpio: host.exit_button: line 1 (REX) of chip gpiochip0 (board) is taken by \"keyboard\""));
  kernel.take("REX", "");
  kernel.take("TRIG", "spi0 CS0");
  EXPECT_THAT(failure_of([this] { lines(); }),
              HasSubstr("gpio: host.trigger_input: line 3 of chip gpiochip0 (board) is taken by \"spi0 CS0\""));
}

TEST_F(RealLines, ThatIsMissingIsRefusedWithItsName) {
  set_text("exit_button", "BUTTON");
  EXPECT_THAT(failure_of([this] { lines(); }),
              HasSubstr("host.exit_button: chip gpiochip0 (board) has no line BUTTON, but lines 0 to 5"));
  set_text("exit_button", "6");
  EXPECT_THAT(failure_of([this] { lines(); }), HasSubstr("has no line 6"));
}

TEST_F(RealLines, ThatShareANameAreRefused) {
  set_text("gpio_chip", "expander");
  set_text("relay_2", "TWICE");
  EXPECT_THAT(failure_of([this] { lines(); }),
              HasSubstr("host.relay_2: lines 1 and 2 of chip gpiochip1 (expander) are both called TWICE"));
}

TEST_F(RealLines, AreFreeAgainAfterARefusal) {
  kernel.take("RST", "led");
  failure_of([this] { lines(); });
  kernel.take("RST", "");
  EXPECT_EQ(failure_of([this] { lines(); }), "nothing was thrown");
}

TEST_F(RealLines, AreOnAChipByPathNameOrLabel) {
  for (const char* const chip : {"/dev/gpiochip0", "gpiochip0", "board"}) {
    set_text("gpio_chip", chip);
    EXPECT_EQ(failure_of([this] { lines(); }), "nothing was thrown") << chip;
  }
  set_text("gpio_chip", "nowhere");
  EXPECT_THAT(failure_of([this] { lines(); }),
              HasSubstr("there is no chip \"nowhere\": there are gpiochip0 (board), gpiochip1 (expander)"));
  set_text("gpio_chip", "/dev/nowhere");
  EXPECT_THAT(failure_of([this] { lines(); }),
              HasSubstr("cannot open the chip /dev/nowhere: No such file or directory"));
}

TEST_F(RealLines, EdgesThatTheKernelHadNoRoomForLeaveTheLevelRight) {
  auto& service = begin();
  kernel.hold_edges("TRIG", true);
  for (int i = 0; i < 21; ++i) {
    kernel.drive("TRIG", (i + 1) % 2);
  }
  kernel.hold_edges("TRIG", false);
  EXPECT_THAT(without_times(16).back(), notice(kTrigger, 1));
  EXPECT_EQ(service.levels()[kTrigger], 1);
}

TEST_F(RealLines, ComeBackAtRestAfterTheirChipHasVanished) {
  auto& service = begin();
  put(kLock, 1);
  seen(1);
  kernel.vanish("gpiochip0");
  EXPECT_THAT(troubles.wait_for(1).back(), HasSubstr("the GPIO chip board has gone"));
  kernel.drive("TRIG", 1);
  kernel.come_back("gpiochip0");
  EXPECT_EQ(troubles.wait_for(2).back(), "");
  EXPECT_THAT(without_times(3), AllOf(testing::Contains(notice(kLock, 0)), testing::Contains(notice(kTrigger, 1))));
  EXPECT_EQ(kernel.voltage("LOCK"), 0);
  put(kLock, 1);
  EXPECT_EQ(without_times(4).back(), notice(kLock, 1));
  EXPECT_EQ(kernel.voltage("LOCK"), 1);
  EXPECT_EQ(service.levels()[kLock], 1);
}

TEST_F(RealLines, OutputThatDoesNotTakeItsLevelIsSaidAndComesToRest) {
  auto& service = begin();
  put(kLock, 1);
  seen(1);
  kernel.fail_writes(true);
  put(kLock, 0);
  EXPECT_THAT(troubles.wait_for(1).back(),
              HasSubstr("host.relay_2 does not take its level: Input/output error; all lines of board are requested"));
  EXPECT_EQ(troubles.wait_for(2).back(), "");
  EXPECT_EQ(without_times(2).back(), notice(kLock, 0));
  EXPECT_EQ(kernel.voltage("LOCK"), 0);
  EXPECT_EQ(service.levels()[kLock], 0);
}

TEST_F(RealLines, AreSurveyedWithWhoUsesThem) {
  kernel.take("SPARE", "led");
  begin();
  const gpio::Chip chip(kernel, "board");
  const auto all = chip.survey();
  ASSERT_EQ(all.size(), 6U);
  EXPECT_EQ(all[0].consumer, "achost relay_2");
  EXPECT_TRUE(all[0].is_output);
  EXPECT_EQ(all[1].consumer, "achost exit_button");
  EXPECT_FALSE(all[1].is_output);
  EXPECT_FALSE(all[4].is_used);
  EXPECT_EQ(all[5].consumer, "led");
  EXPECT_EQ(chip.peek(4), 0);
  EXPECT_EQ(chip.peek(5), std::nullopt);
}

TEST_F(RealLines, AreReportedWithTheirUse) {
  auto& service = begin();
  put(kLock, 1);
  seen(1);
  const auto report = service.lines().report();
  EXPECT_EQ(report.chip, "gpiochip0 (board)");
  ASSERT_EQ(report.lines.size(), 6U);
  EXPECT_EQ(report.lines[0].use, "relay_2");
  EXPECT_EQ(report.lines[0].level, 1);
  EXPECT_EQ(report.lines[3].use, "trigger_input");
  EXPECT_EQ(report.lines[5].use, "");
  EXPECT_EQ(report.lines[5].level, std::nullopt);
}

TEST_F(RealLines, AreReportedWithoutAHostToo) {
  kernel.drive("REX", 1);
  kernel.take("TRIG", "led");
  const auto report = gpio::report_of(kernel, gpio_plan(values()), values());
  EXPECT_EQ(report.lines[1].level, 0) << "high is not pressed";
  EXPECT_EQ(report.lines[2].level, 1) << "low resets";
  EXPECT_EQ(report.lines[3].level, std::nullopt);
  EXPECT_EQ(report.lines[3].consumer, "led");
}

// A host that was killed leaves its lines as they were.
TEST_F(RealLines, ArePutAtRestWithoutAHost) {
  kernel.drive("LOCK", 1);
  kernel.drive("RST", 0);
  auto outcome = gpio::put_at_rest(kernel, gpio_plan(values()), values());
  EXPECT_THAT(outcome.at_rest, ElementsAre("relay_2", "reader_reset"));
  EXPECT_THAT(outcome.faults, ElementsAre());
  EXPECT_EQ(kernel.voltage("LOCK"), 0);
  EXPECT_EQ(kernel.voltage("RST"), 1);
  set_text("door_fail", "safe");
  gpio::put_at_rest(kernel, gpio_plan(values()), values());
  EXPECT_EQ(kernel.voltage("LOCK"), 1);
}

TEST_F(RealLines, OfARunAreKnownAfterIt) {
  const TemporaryDirectory runtime;
  setenv("RUNTIME_DIRECTORY", (runtime.path().string() + ":/nowhere").c_str(), 1);
  EXPECT_FALSE(gpio::KeptPlan::of_last_run().has_value());
  gpio::KeptPlan kept;
  kept.settings_changed(values());
  EXPECT_FALSE(gpio::KeptPlan::of_last_run().has_value()) << "no line is taken yet";
  kept.begin(values());
  set_text("relay_2", "OTHER");  // for the next run
  set_text("door_fail", "safe");
  kept.settings_changed(values());
  const auto last = gpio::KeptPlan::of_last_run();
  unsetenv("RUNTIME_DIRECTORY");
  ASSERT_TRUE(last.has_value());
  EXPECT_EQ(gpio_plan(*last).lines.at(0).wired, (WiredLine{.line = "LOCK"}));
  EXPECT_EQ(gpio_plan(*last).lines.size(), 4U);
  EXPECT_EQ(inverted_line(*last), kLock);
  EXPECT_FALSE(gpio::KeptPlan::of_last_run().has_value()) << "without a directory";
}

TEST_F(RealLines, ArePutAtRestAsFarAsTheyCanBeHad) {
  kernel.drive("RST", 0);
  kernel.take("LOCK", "led");
  const auto outcome = gpio::put_at_rest(kernel, gpio_plan(values()), values());
  EXPECT_THAT(outcome.at_rest, ElementsAre("reader_reset"));
  EXPECT_THAT(outcome.faults,
              ElementsAre(HasSubstr("host.relay_2: line 0 (LOCK) of chip gpiochip0 (board) is taken by \"led\"")));
  EXPECT_EQ(kernel.voltage("RST"), 1);
}

}  // namespace
}  // namespace achost::test
