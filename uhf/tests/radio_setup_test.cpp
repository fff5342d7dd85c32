// Region, power and channels, by the settings.
#include "radio_setup.h"

#include <gmock/gmock.h>

#include "failure.h"
#include "fake_module.h"
#include "second_host.h"

using second_host::host;
using testing::ElementsAre;

namespace {

class RadioSetup : public testing::Test {
 protected:
  void SetUp() override { host().reset(); }
  void TearDown() override { t640_module.reset(); }

  // What the plug-in allows the host's "work_channel_enable" to be after setting this region.
  std::string channelsAllowedFor(const std::string& region) {
    host().reset();
    host().set("region", region);
    reader.asked.clear();
    setRegion();
    return host().get("uhf", "work_channel_enable").value_or("not written");
  }

  FakeModule& reader = FakeModule::install();
};

using SetRegion = RadioSetup;
using ApplyTransmitPower = RadioSetup;
using SetWorkChannel = RadioSetup;

}  // namespace

TEST_F(SetRegion, SetsTheWorkAreaAndPublishesItsChannels) {
  struct Row {
    std::string name, workArea, channels;
  };
  for (const auto& [name, workArea, channels] : std::vector<Row>{
           {"BRAZIL", "0", "0-10;26-51"}, {"AMERICA", "3", "0-51"}, {"EUROPE", "4", "0-14"}, {"KOREA", "5", "0-51"}}) {
    EXPECT_EQ(channelsAllowedFor(name), channels) << name;
    EXPECT_THAT(reader.asked, ElementsAre("setWorkArea " + workArea)) << name;
    EXPECT_THAT(host().debug_texts(), ElementsAre("Allowed working channels: " + channels)) << name;
    EXPECT_EQ(host().debug_lines()[0].function, "setRegion");
    EXPECT_EQ(host().debug_lines()[0].source, "uhf/src/source/uhf");
  }
}

TEST_F(SetRegion, TakesTheNameInAnyCase) {
  EXPECT_EQ(channelsAllowedFor("europe"), "0-14");
  EXPECT_THAT(reader.asked, ElementsAre("setWorkArea 4"));
  EXPECT_EQ(channelsAllowedFor("KoReA"), "0-51");
}

TEST_F(SetRegion, ChinaHasBrazilsChannels) {
  for (const auto& [name, workArea] : {std::pair("CHINA_900MHZ", "setWorkArea 1"), {"china_800mhz", "setWorkArea 2"}}) {
    EXPECT_EQ(channelsAllowedFor(name), "0-10;26-51");
    EXPECT_THAT(reader.asked, ElementsAre(workArea));
    const std::string upper = workArea[12] == '1' ? "CHINA_900MHZ" : "CHINA_800MHZ";
    EXPECT_THAT(host().debug_texts(),
                ElementsAre("Region " + upper + " not found in allowed working channels map. Using Brazil as default",
                            "Allowed working channels: 0-10;26-51"));
    for (const auto& line : host().debug_lines()) {
      EXPECT_EQ(line.function, "setRegion");
    }
  }
}

TEST_F(SetRegion, AnUnknownNameIsBrazil) {
  EXPECT_EQ(channelsAllowedFor("mars"), "0-10;26-51");
  EXPECT_THAT(reader.asked, ElementsAre("setWorkArea 0"));
  EXPECT_THAT(host().debug_texts(), ElementsAre("Region MARS not found in region map. Using default region: Brazil",
                                                "Allowed working channels: 0-10;26-51"));
  EXPECT_EQ(host().debug_lines()[0].function, "operator()");
}

TEST_F(SetRegion, NoNameIsBrazil) {
  setRegion();
  EXPECT_THAT(reader.asked, ElementsAre("setWorkArea 0"));
  EXPECT_EQ(host().debug_texts().at(0), "Region  not found in region map. Using default region: Brazil");
}

TEST_F(SetRegion, PublishesNothingWhenTheReaderDoesNotAnswer) {
  reader.answers = false;
  EXPECT_EQ(failure_of(setRegion), "Could no set Work Area");
  EXPECT_EQ(host().get("uhf", "work_channel_enable"), std::nullopt);
  EXPECT_THAT(host().debug_texts(), testing::Not(testing::Contains(testing::StartsWith("Allowed"))));
}

TEST_F(ApplyTransmitPower, WritesNothingWhenTheReaderHasIt) {
  host().set("transmit_power", 2600);
  applyTransmitPower();
  EXPECT_THAT(reader.asked, ElementsAre("getTransmitPower"));
}

TEST_F(ApplyTransmitPower, WritesAnotherValue) {
  host().set("transmit_power", 3000);
  applyTransmitPower();
  EXPECT_THAT(reader.asked, ElementsAre("getTransmitPower", "setTransmitPower 3000"));
}

TEST_F(ApplyTransmitPower, SendsTheLow16BitsOfALargerValueEveryTime) {
  host().set("transmit_power", 65536 + 2600);
  applyTransmitPower();
  applyTransmitPower();
  EXPECT_THAT(reader.asked,
              ElementsAre("getTransmitPower", "setTransmitPower 2600", "getTransmitPower", "setTransmitPower 2600"));
}

TEST_F(ApplyTransmitPower, SendsTheLow16BitsOfANegativeValue) {
  host().set("transmit_power", -1);
  reader.power = {true, 65535};
  applyTransmitPower();
  EXPECT_THAT(reader.asked, ElementsAre("getTransmitPower", "setTransmitPower 65535"));
}

TEST_F(ApplyTransmitPower, FailsWhenThePowerCannotBeRead) {
  reader.power = {false, 0};
  EXPECT_EQ(failure_of(applyTransmitPower), "Could no read Transmit power");
  EXPECT_THAT(reader.asked, ElementsAre("getTransmitPower"));
  EXPECT_TRUE(host().calls().empty()) << "the setting is read after the reader's value";
}

TEST_F(ApplyTransmitPower, FailsWhenThePowerCannotBeWritten) {
  host().set("transmit_power", 3000);
  reader.answers = false;
  EXPECT_EQ(failure_of(applyTransmitPower), "Could no set Transmit power");
}

TEST_F(SetWorkChannel, SetsEveryChannelOfTheRanges) {
  host().set("work_channel", "0-2;50-51;7");
  setWorkChannel();
  EXPECT_THAT(reader.asked, ElementsAre("setWorkChannel 0 1 2 50 51 7"));
}

TEST_F(SetWorkChannel, DoesNotHoldTheChannelsAgainstTheRegion) {
  host().set("region", "EUROPE");
  host().set("work_channel", "200");
  setWorkChannel();
  EXPECT_THAT(reader.asked, ElementsAre("setWorkChannel 200"));
}

TEST_F(SetWorkChannel, FailsWhenTheReaderDoesNotAnswer) {
  reader.answers = false;
  EXPECT_EQ(failure_of(setWorkChannel), "Could no set Working Channel");
}
