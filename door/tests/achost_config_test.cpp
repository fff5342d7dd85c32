// achost config, as a user meets it.
#include <SQLiteCpp/SQLiteCpp.h>
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "door/tests/process.h"
#include "refhost/instance_lock.h"
#include "refhost/settings_schema.h"
#include "refhost/tests/support.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h
namespace {

class AchostConfig : public testing::Test {
 protected:
  AchostConfig() { std::filesystem::create_directory(state()); }

  std::string state() const { return directory_.path() / "state"; }

  Result config(std::vector<std::string> words) const {
    words.insert(words.begin(), "config");
    words.insert(words.end(), {"--state", state()});
    return achost(words);
  }

  // The command fails with that status and that one line, and writes nothing.
  void expect_refused(const std::vector<std::string>& words, int status, const std::string& line) const {
    const auto result = config(words);
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.err, "achost: " + line + "\n");
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(std::filesystem::is_empty(state()));
  }

  // The command breaks a rule that settings keep together, in that one line.
  void expect_broken(const std::vector<std::string>& words, const std::string& line) const {
    const auto result = config(words);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "achost: " + line + "\n");
    EXPECT_EQ(config({"export"}).out, "# The settings that are not the default; achost config import reads them.\n");
  }

 private:
  TemporaryDirectory directory_;
};

TEST_F(AchostConfig, GetPrintsTheValueAndWritesNothing) {
  const auto result = config({"get", "region"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "BRAZIL\n");
  EXPECT_EQ(result.err, "");
  EXPECT_TRUE(std::filesystem::is_empty(state()));
}

TEST_F(AchostConfig, SetStoresTheValueAndPrintsIt) {
  const auto result = config({"set", "region", "korea"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "korea\n");
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(config({"get", "region"}).out, "korea\n");
}

TEST_F(AchostConfig, SetTakesSeveralAtOnceOrNone) {
  const auto result = config({"set", "region=EUROPE", "work_channel=0-14", "host.device_id=7"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "region=EUROPE\nwork_channel=0-14\nhost.device_id=7\n");
  EXPECT_EQ(config({"set", "region=KOREA", "host.device_id=none"}).status, 2);
  EXPECT_EQ(config({"set", "region=KOREA", "device_id"}).err,
            "achost: \"device_id\" is no setting: give [SECTION.]KEY=VALUE\n");
  EXPECT_EQ(config({"set", "region=KOREA", "uhf.region=BRAZIL"}).err, "achost: uhf.region is given twice\n");
  EXPECT_EQ(config({"get", "region"}).out, "EUROPE\n");
}

TEST_F(AchostConfig, APowerMayHaveItsUnitAndIsAskedBackWithoutOneThatIsClear) {
  EXPECT_EQ(config({"set", "transmit_power", "21dBm"}).out, "2100\n");
  EXPECT_EQ(config({"set", "transmit_power=22.5dBm"}).out, "2250\n");
  const auto result = config({"set", "transmit_power", "21"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err,
            "achost: setting transmit_power: is 21 meant in dBm, or in hundredths of one? Write 21dBm, or 2100, which "
            "is the same; 0.21dBm is the other\n");
  EXPECT_EQ(config({"get", "transmit_power"}).out, "2250\n");
}

TEST_F(AchostConfig, MorePowerThanTheRegionAllowsIsRefusedUnlessForced) {
  expect_broken({"set", "transmit_power", "3001"},
                "transmit_power 3001 is more than region BRAZIL allows with an antenna of 6 dBi, 3000 (30.00 dBm); "
                "host.beyond_region 1 (config set --force) lets it pass");
  EXPECT_EQ(config({"set", "transmit_power", "3000"}).status, 0);
  EXPECT_EQ(config({"set", "region=EUROPE", "work_channel=0-14"}).status, 2) << "which allows less";
  const auto forced = config({"set", "transmit_power", "3001", "--force"});
  EXPECT_EQ(forced.status, 0) << forced.err;
  EXPECT_EQ(forced.out, "transmit_power=3001\nhost.beyond_region=1\n");
  EXPECT_EQ(config({"set", "host", "beyond_region", "0"}).status, 2) << "as long as there is more";
}

TEST_F(AchostConfig, ChannelsOutsideTheRegionAreRefusedUnlessForced) {
  expect_broken({"set", "work_channel", "0-12"},
                "region BRAZIL does not allow work_channel 11-12 but 0-10;26-51: set both at once, as in config set "
                "region=BRAZIL \"work_channel=0-10;26-51\"; host.beyond_region 1 (config set --force) lets it pass");
  EXPECT_EQ(config({"set", "region", "europe"}).status, 2) << "of which the channels are not";
  EXPECT_EQ(config({"set", "work_channel", "0-12", "--force"}).status, 0);
}

class AchostCopy : public AchostConfig {
 protected:
  std::string copy(const std::string& text) const {
    std::ofstream(copy_) << text;
    return copy_;
  }

  // Importing that text fails with that line behind the file's name, and changes nothing.
  void expect_no_copy(const std::string& text, const std::string& line) const {
    expect_refused({"import", copy(text)}, 2, copy_ + line);
  }

 private:
  const TemporaryDirectory directory_;
  const std::string copy_ = directory_.path() / "settings.txt";
};

TEST_F(AchostCopy, OfTheSettingsIsReadBack) {
  EXPECT_EQ(config({"export"}).out, "# The settings that are not the default; achost config import reads them.\n");
  config({"set", "read_interval", "777"});
  config({"set", "host", "device_id", "12"});
  const auto text = config({"export"}).out;
  EXPECT_NE(text.find("\nuhf.read_interval=777\n"), std::string::npos);
  config({"set", "read_interval", "888"});
  config({"set", "host", "device_id", "13"});
  EXPECT_EQ(config({"import", copy(text)}).out, "2 settings are stored\n");
  EXPECT_EQ(config({"export"}).out, text);
}

TEST_F(AchostCopy, MayHaveBlanksCommentsAndNoSection) {
  const auto result = config({"import", copy("\n  # a comment\r\n\tregion = EUROPE \r\nwork_channel=0-10;12")});
  EXPECT_EQ(result.out, "2 settings are stored\n") << result.err;
  EXPECT_EQ(config({"get", "region"}).out, "EUROPE\n");
  EXPECT_EQ(config({"get", "work_channel"}).out, "0-10;12\n");
}

TEST_F(AchostCopy, WithAnErrorChangesNothing) {
  expect_no_copy("region=EUROPE\nread_interval 5\n", ":2: \"read_interval 5\" is no setting: give [SECTION.]KEY=VALUE");
  expect_no_copy("region=EUROPE\n\nregion=MARS",
                 ":3: setting region cannot be \"MARS\": allowed is BRAZIL, CHINA_900MHZ, CHINA_800MHZ, AMERICA, "
                 "EUROPE or KOREA");
  expect_no_copy("region=EUROPE\nuhf.region=KOREA\n", ":2: uhf.region is set in line 1 already");
}

// The database refuses one setting of many, as a full disk or a kill between two writes would.
TEST_F(AchostCopy, ThatCannotBeStoredAsAWholeIsNotStoredInPart) {
  config({"set", "read_interval", "777"});
  SQLite::Database(state() + "/settings.db", SQLite::OPEN_READWRITE)
      .exec(
          "CREATE TRIGGER refuse BEFORE INSERT ON settings WHEN NEW.key = 'transmit_power' "
          "BEGIN SELECT RAISE(ABORT, 'no room'); END");
  const auto before = config({"export"}).out;
  const auto result =
      config({"import", copy("read_interval=888\nregion=KOREA\ntransmit_power=2500\nprobe_interval=20\n")});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("no room"), std::string::npos) << result.err;
  EXPECT_EQ(config({"export"}).out, before);
}

TEST_F(AchostCopy, ThatIsNotThereIsNamed) {
  expect_refused({"import", "/no/such/file"}, 2, "cannot read /no/such/file: No such file or directory");
  expect_refused({"import", "/"}, 2, "cannot read /: Is a directory");
}

TEST_F(AchostConfig, SectionMayBeGiven) {
  EXPECT_EQ(config({"set", "host", "device_id", "12"}).out, "12\n");
  EXPECT_EQ(config({"get", "host", "device_id"}).out, "12\n");
  EXPECT_EQ(config({"get", "uhf", "region"}).out, "BRAZIL\n");
}

TEST_F(AchostConfig, UnknownKeyNamesTheNearest) {
  const std::string line =
      "there is no setting reed_interval in section uhf; the nearest is read_interval in section uhf";
  expect_refused({"get", "reed_interval"}, 2, line);
  expect_refused({"set", "reed_interval", "1"}, 2, line);
}

TEST_F(AchostConfig, ValueOutOfRangeIsRefused) {
  expect_refused({"set", "transmit_power", "65536"}, 2,
                 "setting transmit_power cannot be \"65536\": allowed is 0 to 65535 (0.01 dBm)");
  expect_refused({"set", "read_interval", "-1"}, 2,
                 "setting read_interval cannot be \"-1\": allowed is 0 to 86400000 (ms)");
}

TEST_F(AchostConfig, SettingsThatWouldEndEveryRunAreRefused) {
  const std::string end = ", and the watchdog ends a run with a thread that is silent for 30000 ms\n";
  auto result = config({"set", "probe_interval", "31000"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err,
            "achost: probe_interval 31000 with serial_port_timeout 150 is not possible: together they may "
            "have 27000 ms" +
                end);
  result = config({"set", "watchdog_timeout", "3600000"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err, "achost: watchdog_timeout 3600000 is not possible: it may be 15000 ms at most" + end);
  EXPECT_EQ(config({"set", "probe_interval", "20000"}).status, 0);
  EXPECT_EQ(config({"set", "serial_port_timeout", "10000"}).status, 2) << "too long with the other";
}

TEST_F(AchostConfig, TheTagDetectorIsKeptOffTheDoorsRelay) {
  const std::string reason =
      "tag_detector_relay and host.door_relay cannot both be 2 while tag_detector_enabled is 1: any tag would open the "
      "door";
  EXPECT_EQ(config({"set", "tag_detector_relay", "2"}).status, 0) << "it is not enabled";
  auto result = config({"set", "tag_detector_enabled", "1"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err, "achost: " + reason + "\n");
  EXPECT_EQ(config({"set", "host", "door_relay", "3"}).status, 0);
  EXPECT_EQ(config({"set", "tag_detector_enabled", "1"}).status, 0);
  result = config({"set", "host", "door_relay", "2"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err, "achost: " + reason + "\n");
  EXPECT_EQ(config({"get", "host", "door_relay"}).out, "3\n");
}

TEST_F(AchostCopy, IsCheckedAsAWhole) {
  config({"set", "tag_detector_relay", "3"});
  config({"set", "tag_detector_enabled", "1"});
  EXPECT_EQ(config({"import", copy("tag_detector_relay=2\nhost.door_relay=3\n")}).status, 0)
      << "they change places: neither is possible alone";
  const auto result = config({"import", copy("read_interval=777\nhost.door_relay=2\n")});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(config({"get", "read_interval"}).out, "3000\n");
}

TEST_F(AchostConfig, WrongUsageIsRefused) {
  EXPECT_EQ(config({}).status, 2);
  EXPECT_EQ(config({"get"}).status, 2);
  EXPECT_EQ(config({"set", "region"}).status, 2);
  EXPECT_EQ(config({"remove", "region"}).status, 2);
}

TEST_F(AchostConfig, SetIsRefusedWhileAHostHoldsTheState) {
  const refhost::InstanceLock lock(state());
  const auto result = config({"set", "region", "KOREA"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "achost: the state directory " + state() + " is in use by process " + std::to_string(getpid()) +
                            ": end it first, or give another directory with --state\n");
  EXPECT_EQ(config({"get", "region"}).out, "BRAZIL\n");
}

TEST_F(AchostConfig, DamagedFileIsRefusedWithTheWayOut) {
  std::filesystem::create_directories(state());
  std::ofstream(state() + "/settings.db") << std::string(5000, 'x');
  const auto result = config({"list"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "achost: " + state() +
                            "/settings.db is no readable settings database (file is not a database): "
                            "restore a copy of it, or move it away with settings.good to begin with the defaults\n");
}

TEST_F(AchostConfig, ListShowsEverySettingInOneLine) {
  config({"set", "region", "korea"});
  std::istringstream lines(config({"list"}).out);
  std::string line;
  std::getline(lines, line);
  EXPECT_TRUE(line.starts_with("KEY ")) << line;
  for (const refhost::Setting& setting : refhost::SettingsSchema::builtin().settings()) {
    ASSERT_TRUE(std::getline(lines, line));
    const std::string name = (setting.section == "uhf" ? "" : setting.section + ".") + setting.key;
    EXPECT_TRUE(line.starts_with(name + " ")) << line;
    EXPECT_NE(line.find(setting.help), std::string::npos) << line;
    EXPECT_NE(line.find(setting.allowed()), std::string::npos) << line;
    EXPECT_EQ(line.find(" default ") == std::string::npos, setting.key == "region") << line;
  }
  EXPECT_FALSE(std::getline(lines, line)) << line;
}

TEST_F(AchostConfig, ListAsJsonIsOneObjectALine) {
  config({"set", "transmit_power", "1000"});
  std::istringstream lines(config({"list", "--json"}).out);
  std::string line;
  for (const refhost::Setting& setting : refhost::SettingsSchema::builtin().settings()) {
    ASSERT_TRUE(std::getline(lines, line));
    const auto object = nlohmann::json::parse(line);
    const bool changed = setting.key == "transmit_power";
    EXPECT_EQ(object.at("section"), setting.section);
    EXPECT_EQ(object.at("key"), setting.key);
    EXPECT_EQ(object.at("value"), changed ? "1000" : setting.default_value);
    EXPECT_EQ(object.at("default"), setting.default_value);
    EXPECT_EQ(object.at("is_default"), !changed);
    EXPECT_EQ(object.at("unit"), setting.unit);
    EXPECT_EQ(object.at("allowed"), setting.allowed());
    EXPECT_EQ(object.at("live"), setting.live);
    EXPECT_EQ(object.at("help"), setting.help);
  }
  EXPECT_FALSE(std::getline(lines, line)) << line;
}

TEST(Achost, HelpDocumentsTheExitStatuses) {
  const auto result = achost({"--help"});
  EXPECT_EQ(result.status, 0);
  for (const char* status : {"\n  0  ", "\n  1  ", "\n  2  ", "\n  3  ", "\n  5  ", "\n  6  ", "\n  7  ", "\n  8  "}) {
    EXPECT_NE(result.out.find(status), std::string::npos) << result.out;
  }
}

TEST(Achost, ACommandOrOptionThatIsNoneIsNamedWithTheNearest) {
  auto result = achost({"config", "gett", "region"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err,
            "achost: there is no command \"config gett\": did you mean \"config get\"?; see achost config --help\n");
  result = achost({"run", "--simulat"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err,
            "achost: there is no option \"--simulat\": did you mean \"--simulate\"?; see achost run --help\n");
}

TEST(Achost, WithoutASubcommandIsWrongUsage) {
  const auto result = achost({});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err,
            "achost: give a command: run, config, status, events, door, gpio, rex, enroll, field, health, recording, "
            "journal, why, audit, user, card, schedule, desired, check, backup, restore; see "
            "achost --help\n");
}

}  // namespace
}  // namespace achost::test
