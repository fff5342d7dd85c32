#include "door/cli/settings_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "refhost/tests/support.h"

namespace achost {
namespace {

using ::testing::HasSubstr;

SettingStates defaults() {
  SettingStates states;
  for (const auto& setting : refhost::SettingsSchema::builtin().settings()) {
    states.push_back({.setting = setting, .value = setting.default_value});
  }
  return states;
}

TEST(SettingsTable, IsFoldedWhereATerminalIsTooNarrowForIt) {
  const auto text = settings_as_table(defaults(), 80);
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    EXPECT_LE(line.size(), 80U) << line;
  }
  EXPECT_THAT(text, HasSubstr("\ntransmit_power                    2600          default\n"
                              "    transmit power at the module, in hundredths of a dBm; 21dBm is taken too.\n"
                              "    Allowed: 0 to 65535 (0.01 dBm).\n"));
  for (const auto& setting : refhost::SettingsSchema::builtin().settings()) {
    EXPECT_THAT(text, HasSubstr("\n" + (setting.section == "uhf" ? "" : setting.section + ".") + setting.key + " "));
  }
}

TEST(SettingsTable, HasALineForEachWhereThereIsRoomAndWhereThereIsNoTerminal) {
  const auto all = refhost::SettingsSchema::builtin().settings().size() + 1;
  for (const std::size_t width : {0U, 1000U}) {
    const auto text = settings_as_table(defaults(), width);
    EXPECT_EQ(static_cast<std::size_t>(std::ranges::count(text, '\n')), all) << width;
  }
}

}  // namespace
}  // namespace achost
