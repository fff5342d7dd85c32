#include <gmock/gmock.h>

#include "door/tests/run_fixture.h"

namespace achost::test {
namespace {

using testing::HasSubstr;

class AchostGpio : public AchostRun {
 protected:
  Result gpio(std::vector<std::string> words) const {
    words.insert(words.begin(), "gpio");
    words.insert(words.end(), {"--state", state()});
    return achost(words);
  }
};

TEST_F(AchostGpio, RunWithoutItsChipIsRefusedBeforeThePlugInStarts) {
  const auto result =
      achost(simulated("good", {"--set", "host.relay_2=LOCK", "--set", "host.gpio_chip=/nowhere/gpiochip0"}));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "achost: gpio: cannot open the chip /nowhere/gpiochip0: No such file or directory\n");
  EXPECT_EQ(result.out, "");
}

TEST_F(AchostGpio, RunWithAFileForAChipIsRefused) {
  const auto result = achost(simulated("good", {"--set", "host.relay_2=LOCK", "--set", "host.gpio_chip=/dev/null"}));
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "achost: gpio: /dev/null is no GPIO chip, or has gone\n");
}

TEST_F(AchostGpio, RunWithLinesThatDoNotGoTogetherIsRefused) {
  const auto result = achost(simulated("good", {"--set", "host.gpio_chip=gpiochip0"}));
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.err, HasSubstr("host.door_relay 2 has no line on host.gpio_chip gpiochip0: set host.relay_2 too"));
}

TEST_F(AchostGpio, LineThatIsNoneIsNotStored) {
  std::filesystem::create_directory(state());
  const auto result = achost({"config", "set", "host.exit_button=REX sideways", "--state", state()});
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.err, HasSubstr("host.exit_button cannot have \"sideways\""));
}

TEST_F(AchostGpio, RestOfVirtualLinesIsNothing) {
  EXPECT_NE(gpio({"rest"}).status, 0) << "a directory that is not there may be misspelt";
  std::filesystem::create_directory(state());
  const auto result = gpio({"rest"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "all lines are virtual: there is nothing to put at rest\n");
}

// The disk may have gone, and lines that are stored now are those of the next run.
TEST_F(AchostGpio, RestIsThatOfTheLinesOfTheLastRun) {
  std::filesystem::create_directories(state() + "/run");
  setenv("RUNTIME_DIRECTORY", (state() + "/run").c_str(), 1);
  achost(simulated("good", {"--set", "host.relay_2=LOCK", "--set", "host.gpio_chip=/dev/null"}));
  const auto after_real_lines = gpio({"rest"});
  achost(simulated("good", {"--seconds", "0.1"}));
  const auto after_virtual_lines = gpio({"rest"});
  unsetenv("RUNTIME_DIRECTORY");
  EXPECT_EQ(after_real_lines.err, "achost: gpio: /dev/null is no GPIO chip, or has gone\n");
  EXPECT_EQ(after_virtual_lines.out, "all lines are virtual: there is nothing to put at rest\n");
}

TEST_F(AchostGpio, WithoutAHostIsTheStoredChips) {
  std::filesystem::create_directory(state());
  ASSERT_EQ(achost({"config", "set", "host.relay_2=LOCK", "host.gpio_chip=/dev/null", "--state", state()}).status, 0);
  const std::string fault = "achost: gpio: /dev/null is no GPIO chip, or has gone\n";
  for (const auto& words :
       std::vector<std::vector<std::string>>{{}, {"list"}, {"rest"}, {"test", "relay", "2"}, {"--follow"}}) {
    const auto result = gpio(words);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, fault);
  }
}

}  // namespace
}  // namespace achost::test
