// What a reader is asked and told, and how uhfctl ends when it cannot be.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "refhost/radio_limits.h"
#include "regions.h"
#include "run.h"

namespace uhfctl::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class Radio : public WithReader {};

TEST_F(Radio, InfoTellsPowerSensitivityAndTimes) {
  const auto [status, out, err] = uhfctl({"info"});
  EXPECT_EQ(status, 0) << err;
  EXPECT_THAT(out, HasSubstr("2600 (26.00 dBm)"));
  EXPECT_THAT(out, HasSubstr("m 2, i 6, threshold 160"));
  const auto object = objects_of(uhfctl({"info", "--json"}).out).at(0);
  EXPECT_EQ(object["power"], 2600);
  EXPECT_EQ(object["sensitivity"]["threshold"], 160);
  EXPECT_GT(object["round_trip_ms"]["median"], 0);
}

TEST_F(Radio, PowerIsSetAndReadBack) {
  EXPECT_EQ(uhfctl({"power", "get"}).out, "2600  (26.00 dBm)\n");
  EXPECT_EQ(uhfctl({"power", "set", "2350"}).out, "2350  (23.50 dBm), before 2600\n");
  EXPECT_EQ(reader.state().power, 2350);
  EXPECT_EQ(objects_of(uhfctl({"power", "get", "--json"}).out).at(0)["power"], 2350);
}

TEST_F(Radio, APowerHasAUnitOrIsInHundredths) {
  EXPECT_EQ(uhfctl({"power", "set", "21dBm"}).out, "2100  (21.00 dBm), before 2600\n");
  EXPECT_EQ(uhfctl({"power", "set", "22.5 dBm"}).out, "2250  (22.50 dBm), before 2100\n");
  const auto bare = uhfctl({"power", "set", "26"});
  EXPECT_EQ(bare.status, 2);
  EXPECT_EQ(bare.err,
            "uhfctl: is 26 meant in dBm, or in hundredths of one? Write 26dBm, or 2600, which is the same; "
            "0.26dBm is the other\n");
  EXPECT_EQ(uhfctl({"power", "set", "much"}).status, 2);
  EXPECT_EQ(reader.state().power, 2250);
}

TEST_F(Radio, MorePowerThanTheRegionAllowsIsRefusedUnlessForced) {
  const auto result = uhfctl({"power", "set", "30dBm", "--region", "europe"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err,
            "uhfctl: 30.00 dBm is more than the 29.15 dBm that EUROPE allows with an antenna of 6 dBi; "
            "--region names another region, --force sets it all the same\n");
  EXPECT_EQ(uhfctl({"power", "set", "3001"}).status, 2) << "of the usual region";
  EXPECT_EQ(reader.counters().commands, 0U);
  EXPECT_EQ(uhfctl({"power", "set", "3001", "--force"}).status, 0);
  EXPECT_EQ(reader.state().power, 3001);
}

TEST(RadioLimit, HasTheChannelsThatThePluginPublishes) {
  for (const auto& limit : refhost::kRadioLimits) {
    const auto region = regionOf(limit.region);
    ASSERT_TRUE(region.has_value()) << limit.region;
    EXPECT_EQ(limit.channels, allowedChannels(*region).value_or(BRAZIL_CHANNELS)) << limit.region;
  }
}

TEST_F(Radio, RegionTakesItsNameInAnyCase) {
  EXPECT_EQ(uhfctl({"region", "set", "europe"}).status, 0);
  EXPECT_EQ(reader.state().region, 3);
  const auto unknown = uhfctl({"region", "set", "mars"});
  EXPECT_EQ(unknown.status, 2);
  EXPECT_THAT(unknown.err, HasSubstr("there is no region \"mars\": one of BRAZIL, "));
  EXPECT_EQ(reader.state().region, 3);
}

TEST_F(Radio, ChannelsAreSetAndRefusedOutsideTheRegion) {
  const auto allowed = uhfctl({"channels", "set", "0-2;5"});
  EXPECT_EQ(allowed.status, 0);
  EXPECT_EQ(allowed.err, "");
  EXPECT_EQ(reader.state().channels, (std::vector<std::uint8_t>{0, 1, 2, 5}));
  const auto outside = uhfctl({"channels", "set", "13-16", "--region", "EUROPE"});
  EXPECT_EQ(outside.status, 2);
  EXPECT_EQ(outside.err,
            "uhfctl: EUROPE allows the channels 0-14 and not 15-16; --region names another region, "
            "--force sets it all the same\n");
  EXPECT_EQ(reader.state().channels, (std::vector<std::uint8_t>{0, 1, 2, 5}));
  EXPECT_EQ(uhfctl({"channels", "set", "13-16", "--region", "EUROPE", "--force"}).status, 0);
  EXPECT_EQ(uhfctl({"channels", "set", "5-1"}).status, 2);
  EXPECT_EQ(uhfctl({"channels", "set", "256"}).status, 2);
}

TEST_F(Radio, SensitivityIsSetAndReadBack) {
  EXPECT_EQ(uhfctl({"sensitivity", "set", "3", "5", "300"}).out,
            "m 3, i 5, threshold 300  (before m 2, i 6, threshold 160)\n");
  EXPECT_EQ(reader.state().sensitivity, (uhfsim::Sensitivity{3, 5, 300}));
  EXPECT_EQ(uhfctl({"sensitivity", "set", "256", "5", "300"}).status, 2);
  EXPECT_EQ(uhfctl({"sensitivity", "get"}).out, "m 3, i 5, threshold 300\n");
}

TEST_F(Radio, WhatTheProtocolCannotAskIsSaid) {
  const auto [status, out, err] = uhfctl({"region", "get"});
  EXPECT_EQ(status, 1);
  EXPECT_THAT(err, HasSubstr("a reader cannot be asked for its region"));
}

TEST_F(Radio, APortThatIsNotThere) {
  const auto [status, out, err] = run({"--port", "/dev/nothing", "power", "get"});
  EXPECT_EQ(status, 3);
  EXPECT_THAT(err, StartsWith("uhfctl: there is no port /dev/nothing: "));
  EXPECT_EQ(out, "");
}

TEST_F(Radio, NobodyAtThePort) {
  reader.faults().set("silence", 1);
  const auto [status, out, err] = uhfctl({"--timeout", "100", "power", "get"});
  EXPECT_EQ(status, 3);
  EXPECT_THAT(err, StartsWith("uhfctl: no reader answers at " + reader.path()));
}

TEST_F(Radio, WhatComesInPlaceOfAnAnswerIsSaid) {
  reader.faults().set("echo", 1);
  const auto [status, out, err] = uhfctl({"--timeout", "100", "power", "get"});
  EXPECT_EQ(status, 3);
  EXPECT_EQ(err, "uhfctl: no reader answers at " + reader.path() +
                     ": what is sent comes back; `uhfctl doctor` looks at it\n");
}

TEST_F(Radio, ABusyPortNamesWhoHasIt) {
  // Another process that has the port open, as an achost would.
  const auto& path = reader.path();
  uhfsim::testing::Process other("/bin/sh", {"-c", "exec 3<>" + path + "; echo open; read line"});
  ASSERT_EQ(other.read_line(), "open");
  const auto [status, out, err] = uhfctl({"info"});
  EXPECT_EQ(status, 5);
  EXPECT_THAT(err, HasSubstr("is in use by process "));
  EXPECT_THAT(err, HasSubstr("(sh)"));
}

TEST_F(Radio, WrongUsageIsStatusTwo) {
  EXPECT_EQ(run({}).status, 2);
  EXPECT_EQ(uhfctl({"power", "set", "70000"}).status, 2);
  EXPECT_EQ(uhfctl({"dance"}).status, 2);
  EXPECT_EQ(run({"info"}).status, 2) << "without a port";
}

TEST_F(Radio, HelpAndVersionAreStatusZero) {
  EXPECT_EQ(run({"--help"}).status, 0);
  EXPECT_THAT(run({"--version"}).out, ::testing::MatchesRegex("[0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

}  // namespace
}  // namespace uhfctl::testing
