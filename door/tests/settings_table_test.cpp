#include "door/cli/settings_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "refhost/tests/support.h"

namespace achost {
namespace {

using refhost::SettingsStore;
using ::testing::HasSubstr;

class SettingsTable : public testing::Test {
 protected:
  refhost::test::TemporaryDirectory directory;
  SettingsStore store{directory.path(), SettingsStore::Access::read_write};
};

TEST_F(SettingsTable, IsFoldedWhereATerminalIsTooNarrowForIt) {
  const auto text = settings_as_table(store, 80);
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    EXPECT_LE(line.size(), 80U) << line;
  }
  EXPECT_THAT(text, HasSubstr("\ntransmit_power                    2600          default\n"
                              "    transmit power at the module, in hundredths of a dBm; 21dBm is taken too.\n"
                              "    Allowed: 0 to 65535 (0.01 dBm).\n"));
  for (const auto& setting : store.schema().settings()) {
    EXPECT_THAT(text, HasSubstr("\n" + (setting.section == "uhf" ? "" : setting.section + ".") + setting.key + " "));
  }
}

TEST_F(SettingsTable, HasALineForEachWhereThereIsRoomAndWhereThereIsNoTerminal) {
  const auto all = store.schema().settings().size() + 1;
  for (const std::size_t width : {0U, 1000U}) {
    const auto text = settings_as_table(store, width);
    EXPECT_EQ(static_cast<std::size_t>(std::ranges::count(text, '\n')), all) << width;
  }
}

}  // namespace
}  // namespace achost
