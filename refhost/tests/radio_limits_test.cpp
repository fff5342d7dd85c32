// Powers as people write them, and what a region allows.
#include "refhost/radio_limits.h"

#include <gtest/gtest.h>

#include "refhost/settings_schema.h"

namespace refhost {
namespace {

std::string fault_of(const std::string& text) {
  try {
    return "is " + std::to_string(parse_power(text));
  } catch (const PowerError& failure) {
    return failure.what();
  }
}

TEST(Power, IsANumberWithItsUnitOrHundredths) {
  for (const auto& [text, power] : {std::pair("21dBm", 2100),
                                    {"21 dBm", 2100},
                                    {"21.5DBM", 2150},
                                    {"0.21dbm", 21},
                                    {"2100", 2100},
                                    {"50", 50},
                                    {"0", 0},
                                    {"0dBm", 0},
                                    {"29.15dBm", 2915},
                                    {"655.35dBm", 65535}}) {
    EXPECT_EQ(parse_power(text), power) << text;
  }
}

TEST(Power, ANumberThatMayBeMeantEitherWayIsAskedBack) {
  EXPECT_EQ(fault_of("21"),
            "is 21 meant in dBm, or in hundredths of one? Write 21dBm, or 2100, which is the same; "
            "0.21dBm is the other");
  EXPECT_EQ(fault_of("21.5"),
            "is 21.5 meant in dBm, or in hundredths of one? Write 21.5dBm, or 2150, which is the same");
  EXPECT_NE(fault_of("1"), "is 1");
  EXPECT_NE(fault_of("49"), "is 49");
}

TEST(Power, WhatIsNoneSaysHowToWriteOne) {
  for (const char* const text : {"", "dBm", "-1dBm", "1e3", "21dB", "21mW", "21.505dBm", "2.1.0dBm", ".5dBm", "5.dBm",
                                 "inf", "0x10", " 21dBm", "21dBm "}) {
    EXPECT_EQ(fault_of(text), "\"" + std::string(text) +
                                  "\" is no power: write 21dBm, or 2100, which is the same in hundredths of a dBm");
  }
  EXPECT_EQ(fault_of("70000"), "\"70000\" is more than a reader can be told: at most 655.35 dBm");
  EXPECT_EQ(fault_of("700dBm"), "\"700dBm\" is more than a reader can be told: at most 655.35 dBm");
}

TEST(RadioLimits, EveryRegionOfTheSettingsHasOne) {
  const auto& region = SettingsSchema::builtin().at("uhf", "region");
  ASSERT_EQ(region.choices.size(), kRadioLimits.size());
  for (const auto& name : region.choices) {
    ASSERT_NE(radio_limit_of(name), nullptr) << name;
  }
  EXPECT_EQ(radio_limit_of("europe"), radio_limit_of("EUROPE"));
  EXPECT_EQ(radio_limit_of("mars"), nullptr);
}

TEST(RadioLimits, TheDefaultsAreAllowed) {
  const auto& schema = SettingsSchema::builtin();
  const auto* const limit = radio_limit_of(schema.at("uhf", "region").default_value);
  ASSERT_NE(limit, nullptr);
  EXPECT_EQ(channels_outside(*limit, schema.at("uhf", "work_channel").default_value), "");
  for (const auto& one : kRadioLimits) {
    EXPECT_LE(std::stoi(schema.at("uhf", "transmit_power").default_value), one.most_power) << one.region;
  }
}

TEST(RadioLimits, ChannelsOutsideAreNamedAsRanges) {
  const auto& europe = *radio_limit_of("EUROPE");
  EXPECT_EQ(channels_outside(europe, "0-14"), "");
  EXPECT_EQ(channels_outside(europe, "0-10;26-51;60"), "26-51;60");
  EXPECT_EQ(channels_outside(*radio_limit_of("BRAZIL"), "9-12;26"), "11-12");
}

}  // namespace
}  // namespace refhost
