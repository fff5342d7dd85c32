#include "door/base/gpio_plan.h"

#include <gmock/gmock.h>

#include <map>

#include "door/base/settings_rules.h"
#include "refhost/tests/support.h"

namespace achost {
namespace {

using refhost::test::failure_of;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using Bias = WiredLine::Bias;

class Plan : public testing::Test {
 protected:
  SettingsValues values() const {
    return [this](const std::string& section, const std::string& key) {
      const auto found = given.find(section + "." + key);
      return found == given.end() ? refhost::SettingsSchema::builtin().at(section, key).default_value : found->second;
    };
  }
  std::string fault() const {
    const std::string what = failure_of([this] { gpio_plan(values()); });
    EXPECT_EQ(gpio_is_wired().fault(values()), what == "nothing was thrown" ? "" : what);
    return what;
  }

  std::map<std::string, std::string> given = {{"host.gpio_chip", "gpiochip0"}, {"host.relay_2", "LOCK"}};
};

TEST(WiredLine, HasAllThatItsTextSays) {
  EXPECT_EQ(wired_line_of("x", "REX active-low pull-up debounce=20", false),
            (WiredLine{.line = "REX", .active_low = true, .bias = Bias::pull_up, .debounce_ms = 20}));
  EXPECT_EQ(wired_line_of("x", "  17   no-bias rest=1 ", true),
            (WiredLine{.line = "17", .bias = Bias::none, .rest = 1}));
  EXPECT_EQ(wired_line_of("x", "17", true).offset(), 17U);
  EXPECT_EQ(wired_line_of("x", "17a", true).offset(), std::nullopt);
}

TEST(WiredLine, WithAWordThatItCannotHaveIsRefusedWithWhatItCan) {
  for (const auto& [text, is_output, word] : {std::tuple("REX up", false, "\"up\""),
                                              {"REX debounce=", false, "\"debounce=\""},
                                              {"REX debounce=1001", false, "\"debounce=1001\""},
                                              {"REX debounce=-1", false, "\"debounce=-1\""},
                                              {"REX rest=1", false, "\"rest=1\""},
                                              {"LOCK debounce=20", true, "\"debounce=20\""},
                                              {"LOCK rest=2", true, "\"rest=2\""}}) {
    EXPECT_THAT(failure_of([&] { wired_line_of("host.it", text, is_output); }),
                testing::AllOf(HasSubstr("host.it cannot have " + std::string(word) + ": it is LINE [active-low]"),
                               HasSubstr(is_output ? "[rest=0|1]" : "[debounce=0..1000]")));
  }
  EXPECT_THAT(failure_of([] { wired_line_of("host.it", "  ", true); }), HasSubstr("host.it names no line"));
}

TEST_F(Plan, HasNoLinesWithoutAChip) {
  given["host.gpio_chip"] = "";
  EXPECT_THAT(gpio_plan(values()).lines, IsEmpty());
}

TEST_F(Plan, GivesEachLineItsNumberOnTheBus) {
  given["host.relay_8"] = "8";
  given["host.exit_button"] = "REX";
  given["host.trigger_input"] = "TRIG";
  given["uhf.trig_gpio"] = "5";
  given["host.door_contact"] = "CONTACT";
  given["host.tamper_contact"] = "CASE";
  given["host.reader_reset"] = "RST";
  given["host.mode_switch"] = "KEY";
  std::vector<std::pair<std::string, int>> numbers;
  std::vector<std::string> outputs;
  for (const auto& line : gpio_plan(values()).lines) {
    numbers.emplace_back(line.use, line.number);
    if (line.is_output) {
      outputs.push_back(line.wired.line);
    }
  }
  EXPECT_THAT(numbers, ElementsAre(std::pair("relay_2", 18), std::pair("relay_8", 24), std::pair("exit_button", 256),
                                   std::pair("trigger_input", 5), std::pair("door_contact", 257),
                                   std::pair("tamper_contact", 258), std::pair("mode_switch", 260),
                                   std::pair("reader_reset", 259)));
  EXPECT_THAT(outputs, ElementsAre("LOCK", "8", "RST"));
}

TEST_F(Plan, NeedsALineForTheRelayThatOpensTheDoor) {
  given["host.door_relay"] = "3";
  EXPECT_THAT(fault(), HasSubstr("host.door_relay 3 has no line on host.gpio_chip gpiochip0: set host.relay_3 too"));
}

TEST_F(Plan, LeavesTheRestOfTheLockToTheDoor) {
  given["host.relay_2"] = "LOCK rest=1";
  EXPECT_THAT(fault(), HasSubstr("host.relay_2 opens the door and cannot have \"rest=1\": host.door_fail"));
}

TEST_F(Plan, UsesEachLineOnce) {
  given["host.exit_button"] = "LOCK";
  EXPECT_THAT(fault(), HasSubstr("host.relay_2 and host.exit_button cannot both be line LOCK of the chip"));
  given["host.exit_button"] = "";
  given["host.trigger_input"] = "TRIG";
  given["uhf.trig_gpio"] = "18";
  EXPECT_THAT(fault(),
              HasSubstr("host.relay_2 and host.trigger_input cannot both be line 18 of the bus: change uhf.trig_gpio"));
}

TEST_F(Plan, WithABadLineIsRefusedAlsoWithoutAChip) {
  given["host.gpio_chip"] = "";
  given["host.exit_button"] = "REX sideways";
  EXPECT_THAT(fault(), HasSubstr("host.exit_button cannot have \"sideways\""));
}

TEST_F(Plan, KnowsTheLineThatResetsTheReader) {
  EXPECT_EQ(reader_reset_line(values()), -1);
  given["host.reader_reset_line"] = "9";
  EXPECT_EQ(reader_reset_line(values()), 9);
  given["host.reader_reset"] = "RST";
  EXPECT_EQ(reader_reset_line(values()), kReaderReset);
  given["host.gpio_chip"] = "";
  EXPECT_EQ(reader_reset_line(values()), 9);
}

TEST(GpioRule, IsOneOfTheDoors) {
  const auto rules = settings_rules(kUsualWatchdogLimit);
  EXPECT_TRUE(std::ranges::any_of(rules, [](const auto& rule) {
    return std::ranges::find(rule.of, std::pair<std::string, std::string>("host", "gpio_chip")) != rule.of.end();
  }));
}

TEST(GpioRule, LooksAtEverySettingThatThePlanIsMadeOf) {
  const auto rule = gpio_is_wired();
  std::set<std::pair<std::string, std::string>> read;
  gpio_plan([&](const std::string& section, const std::string& key) -> std::string {
    read.emplace(section, key);
    return key == "gpio_chip" ? "chip" : key == "door_relay" ? "1" : key == "trig_gpio" ? "1" : key;
  });
  EXPECT_EQ(read, std::set(rule.of.begin(), rule.of.end()));
}

}  // namespace
}  // namespace achost
