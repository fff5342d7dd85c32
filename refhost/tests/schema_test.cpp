#include "refhost/settings_schema.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "config/edit_distance.h"
#include "config/int_ranges.h"
#include "refhost/tests/support.h"

namespace refhost::test {
namespace {

const Setting& uhf(const std::string& key) { return SettingsSchema::builtin().at("uhf", key); }

TEST(Schema, HasEverySettingOfThePluginAndTheHostWithItsDefault) {
  const std::map<std::string, std::string> expected = {
      {"uhf.trig_gpio", "1"},
      {"uhf.watchdog_timeout", "1000"},
      {"uhf.tag_detector_tag_present_timeout", "500"},
      {"uhf.tag_detector_relay", "1"},
      {"uhf.tag_detector_enabled", "0"},
      {"uhf.operation_mode", "continuous"},
      {"uhf.trig_idle", "0"},
      {"uhf.trigger_timeout", "5000"},
      {"uhf.read_interval", "3000"},
      {"uhf.read_interval_diff_tags", "500"},
      {"uhf.serial_port_path", "/dev/ttyUSB0"},
      {"uhf.serial_port_timeout", "150"},
      {"uhf.region", "BRAZIL"},
      {"uhf.transmit_power", "2600"},
      {"uhf.work_channel", "0-10;26-51"},
      {"uhf.work_channel_enable", ""},
      {"uhf.probe_interval", "10"},
      {"uhf.identification_bits", "32"},
      {"uhf.reader_type", "msb"},
      {"host.beyond_region", "0"},
      {"host.device_id", "1"},
      {"host.door_relay", "2"},
      {"host.door_open_time", "3000"},
      {"host.away_time", "10000"},
      {"host.untrusted_clock", "use"},
      {"host.enroll_timeout", "15000"},
      {"host.audit_keep", "100000"},
      {"host.audit_keep_days", "30"},
      {"host.journal_keep", "1000000"},
      {"host.journal_keep_days", "0"},
      {"host.journal_required", "0"},
      {"host.reader_give_up", "300"},
      {"host.reader_reset_line", "-1"},
      {"host.gpio_chip", ""},
      {"host.relay_1", ""},
      {"host.relay_2", ""},
      {"host.relay_3", ""},
      {"host.relay_4", ""},
      {"host.relay_5", ""},
      {"host.relay_6", ""},
      {"host.relay_7", ""},
      {"host.relay_8", ""},
      {"host.exit_button", ""},
      {"host.trigger_input", ""},
      {"host.door_contact", ""},
      {"host.tamper_contact", ""},
      {"host.reader_reset", ""},
      {"host.door_fail", "secure"},
      {"host.door_grace", "1000"},
      {"host.door_held_warning", "30"},
      {"host.door_held_alarm", "60"},
      {"host.door_handle_opens", "0"},
      {"host.door_relock", "time"},
      {"host.door_mode", "auto"},
      {"host.mode_switch", ""},
      {"host.mode_switch_mode", "locked"},
      {"host.locked_schedule", ""},
      {"host.unlocked_schedule", ""},
      {"system.usb_port_enabled", "1"},
  };
  std::map<std::string, std::string> found;
  for (const Setting& setting : SettingsSchema::builtin().settings()) {
    found[setting.section + "." + setting.key] = setting.default_value;
  }
  EXPECT_EQ(found, expected);
  EXPECT_EQ(SettingsSchema::builtin().settings().size(), expected.size()) << "a key stands there twice";
}

TEST(Schema, EverySettingHasOneLineOfHelp) {
  for (const Setting& setting : SettingsSchema::builtin().settings()) {
    EXPECT_FALSE(setting.help.empty()) << setting.key;
    EXPECT_EQ(setting.help.find('\n'), std::string::npos) << setting.key;
  }
}

TEST(Schema, SaysWhichSettingsApplyWhileThePluginRuns) {
  const std::set<std::string> at_start = {"trig_gpio",
                                          "watchdog_timeout",
                                          "tag_detector_tag_present_timeout",
                                          "tag_detector_relay",
                                          "serial_port_path",
                                          "serial_port_timeout",
                                          "work_channel_enable",
                                          "reader_give_up",
                                          "reader_reset_line",
                                          "gpio_chip",
                                          "relay_1",
                                          "relay_2",
                                          "relay_3",
                                          "relay_4",
                                          "relay_5",
                                          "relay_6",
                                          "relay_7",
                                          "relay_8",
                                          "exit_button",
                                          "trigger_input",
                                          "door_contact",
                                          "tamper_contact",
                                          "reader_reset",
                                          "mode_switch"};
  for (const Setting& setting : SettingsSchema::builtin().settings()) {
    EXPECT_EQ(setting.live, !at_start.contains(setting.key)) << setting.key;
  }
}

TEST(Schema, TimesAreInMilliseconds) {
  for (const char* key : {"watchdog_timeout", "tag_detector_tag_present_timeout", "trigger_timeout", "read_interval",
                          "read_interval_diff_tags", "serial_port_timeout", "probe_interval"}) {
    EXPECT_EQ(uhf(key).unit, "ms") << key;
  }
}

struct ValueCase {
  const char* key;
  const char* value;
  bool allowed;
};

class SchemaValue : public testing::TestWithParam<ValueCase> {};

TEST_P(SchemaValue, IsAllowedOrRefused) {
  const auto& [key, value, allowed] = GetParam();
  const std::string outcome = failure_of([&] { uhf(key).check(value); });
  EXPECT_EQ(outcome == "nothing was thrown", allowed) << key << " = \"" << value << "\": " << outcome;
}

INSTANTIATE_TEST_SUITE_P(
    Boundaries, SchemaValue,
    testing::Values(ValueCase{"transmit_power", "0", true}, ValueCase{"transmit_power", "65535", true},
                    ValueCase{"transmit_power", "65536", false}, ValueCase{"transmit_power", "-1", false},
                    ValueCase{"serial_port_timeout", "99", false}, ValueCase{"serial_port_timeout", "100", true},
                    ValueCase{"serial_port_timeout", "25500", true}, ValueCase{"serial_port_timeout", "25501", false},
                    ValueCase{"probe_interval", "0", true}, ValueCase{"probe_interval", "60000", true},
                    ValueCase{"probe_interval", "60001", false}, ValueCase{"read_interval", "0", true},
                    ValueCase{"read_interval", "-1", false}, ValueCase{"read_interval_diff_tags", "0", true},
                    ValueCase{"identification_bits", "0", true}, ValueCase{"identification_bits", "512", true},
                    ValueCase{"identification_bits", "513", false}, ValueCase{"tag_detector_relay", "0", false},
                    ValueCase{"tag_detector_relay", "8", true}, ValueCase{"tag_detector_relay", "9", false},
                    ValueCase{"trig_gpio", "255", true}, ValueCase{"trig_gpio", "256", false}));

INSTANTIATE_TEST_SUITE_P(
    Numbers, SchemaValue,
    testing::Values(ValueCase{"transmit_power", "", false}, ValueCase{"transmit_power", " 1", false},
                    ValueCase{"transmit_power", "1 ", false}, ValueCase{"transmit_power", "+1", false},
                    ValueCase{"transmit_power", "0x10", false}, ValueCase{"transmit_power", "1.5", false},
                    ValueCase{"transmit_power", "99999999999999999999", false}));

INSTANTIATE_TEST_SUITE_P(
    Choices, SchemaValue,
    testing::Values(ValueCase{"operation_mode", "inhibit", true}, ValueCase{"operation_mode", "TRIGGER", true},
                    ValueCase{"operation_mode", "Continuous", true}, ValueCase{"operation_mode", "trigger ", false},
                    ValueCase{"operation_mode", "trig", false}, ValueCase{"operation_mode", "", false},
                    ValueCase{"region", "BRAZIL", true}, ValueCase{"region", "china_900mhz", true},
                    ValueCase{"region", "CHINA_800MHZ", true}, ValueCase{"region", "America", true},
                    ValueCase{"region", "europe", true}, ValueCase{"region", "KOREA", true},
                    ValueCase{"region", "mars", false}, ValueCase{"reader_type", "lsb", true},
                    ValueCase{"reader_type", "MSB", true}, ValueCase{"reader_type", "xsb", false}));

INSTANTIATE_TEST_SUITE_P(
    Others, SchemaValue,
    testing::Values(ValueCase{"trig_idle", "0", true}, ValueCase{"trig_idle", "1", true},
                    ValueCase{"trig_idle", "2", false}, ValueCase{"trig_idle", "true", false},
                    ValueCase{"work_channel", "0-10;26-51", true}, ValueCase{"work_channel", "255", true},
                    ValueCase{"work_channel", "256", false}, ValueCase{"work_channel", "0-256", false},
                    ValueCase{"work_channel", "", false}, ValueCase{"work_channel", "10-0", false},
                    ValueCase{"serial_port_path", "/dev/ttyUSB1", true},
                    ValueCase{"serial_port_path", "ttyUSB1", false}, ValueCase{"serial_port_path", "", false},
                    ValueCase{"serial_port_path", "/dev/tty\n", false}, ValueCase{"work_channel_enable", "", true},
                    ValueCase{"work_channel_enable", "0-14", true}, ValueCase{"work_channel_enable", "a\tb", false}));

TEST(Schema, RefusalNamesTheKeyTheValueAndWhatIsAllowed) {
  const auto refusal = [](const char* key, const char* value) { return failure_of([&] { uhf(key).check(value); }); };
  EXPECT_EQ(refusal("transmit_power", "70000"),
            "setting transmit_power cannot be \"70000\": allowed is 0 to 65535 (0.01 dBm)");
  EXPECT_EQ(refusal("operation_mode", "never"),
            "setting operation_mode cannot be \"never\": allowed is inhibit, trigger or continuous");
  EXPECT_EQ(refusal("work_channel", "x"),
            "setting work_channel cannot be \"x\": allowed is ranges of 0 to 255, such as 0-10;26-51 (channel)");
  EXPECT_EQ(refusal("serial_port_path", "x"), "setting serial_port_path cannot be \"x\": allowed is an absolute path");
}

TEST(Schema, UnknownKeyNamesTheNearest) {
  const auto refusal = [](const char* section, const char* key) {
    return failure_of([&] { SettingsSchema::builtin().at(section, key); });
  };
  EXPECT_EQ(refusal("uhf", "reed_interval"),
            "there is no setting reed_interval in section uhf; the nearest is read_interval in section uhf");
  EXPECT_EQ(refusal("uhf", "device_id"),
            "there is no setting device_id in section uhf; the nearest is device_id in section host");
  EXPECT_EQ(failure_of([] { SettingsSchema::builtin().at("uhf", "bogus"); }),
            "there is no setting bogus in section uhf; achost config list shows all");
}

TEST(Schema, MistakesInItAreErrors) {
  const auto parse = [](const std::string& settings) {
    return failure_of([&] { SettingsSchema("{\"settings\": [" + settings + "]}"); });
  };
  const std::string good = R"({"section":"s","key":"k","type":"int","default":"1","max":9,"live":true,"help":"h"})";
  EXPECT_EQ(parse(good), "nothing was thrown");
  EXPECT_NE(parse(""), "nothing was thrown");
  EXPECT_NE(parse(R"({"section":"s","key":"k","type":"int","default":"10","max":9,"live":true,"help":"h"})"),
            "nothing was thrown");
  EXPECT_NE(parse(R"({"section":"s","key":"k","type":"float","default":"1","live":true,"help":"h"})"),
            "nothing was thrown");
  EXPECT_NE(parse(R"({"section":"s","key":"k","type":"choice","default":"1","live":true,"help":"h"})"),
            "nothing was thrown");
}

TEST(EditDistance, CountsInsertionsDeletionsAndReplacements) {
  EXPECT_EQ(edit_distance("", ""), 0U);
  EXPECT_EQ(edit_distance("abc", "abc"), 0U);
  EXPECT_EQ(edit_distance("", "abc"), 3U);
  EXPECT_EQ(edit_distance("abc", ""), 3U);
  EXPECT_EQ(edit_distance("abc", "axc"), 1U);
  EXPECT_EQ(edit_distance("abc", "ac"), 1U);
  EXPECT_EQ(edit_distance("kitten", "sitting"), 3U);
}

TEST(IntRanges, ListsTheNumbersInOrder) {
  EXPECT_EQ(parse_int_ranges("0-3;26-27"), std::vector<int>({0, 1, 2, 3, 26, 27}));
  EXPECT_EQ(parse_int_ranges("7"), std::vector<int>({7}));
  EXPECT_EQ(parse_int_ranges("5-5;1"), std::vector<int>({5, 1}));
  EXPECT_EQ(parse_int_ranges("0-10;26-51")->size(), 37U);
}

TEST(IntRanges, RefusesWhatIsNoList) {
  for (const char* text : {"", ";", "1;", ";1", "-", "1-", "-1", "2-1", "a", "1-b", "1 - 2", "1,2", "1-2-3", "--1",
                           "1--2", "65536", "0-99999999999"}) {
    EXPECT_EQ(parse_int_ranges(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace refhost::test
