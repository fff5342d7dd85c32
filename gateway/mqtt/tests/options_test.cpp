#include "gateway/mqtt/options.h"

#include <gmock/gmock.h>

#include <fstream>

#include "cli/failure.h"
#include "gateway/mqtt/bridge.h"
#include "refhost/tests/support.h"

namespace mqtt {
namespace {

using testing::HasSubstr;

Options options(const std::string& broker) {
  Options all;
  all.door = "gate-1";
  all.broker = broker;
  all.files.ca = "ca.pem";
  return all;
}

TEST(TimingTest, OnlyWhoStartsWithHisMachineWaitsBeforeHeComes) {
  EXPECT_EQ(timing_after(std::chrono::seconds(20)).first, std::chrono::seconds(10));
  EXPECT_EQ(timing_after(std::chrono::minutes(2)).first, std::chrono::seconds(0));
}

std::string failure_of(const Options& all) {
  try {
    place_of(all);
    return "";
  } catch (const cli::Failure& failure) {
    return failure.what();
  }
}

TEST(MqttOptionsTest, ABrokerIsANameAndAPort) {
  EXPECT_EQ(place_of(options("b.example")).port, 8883);
  EXPECT_EQ(place_of(options("b.example:1234")).port, 1234);
  EXPECT_EQ(place_of(options("[::1]:1234")).host, "::1");
  for (const char* broker : {":1", "b:", "b:x", "b:70000", "b:0"}) {
    EXPECT_NE(failure_of(options(broker)), "") << broker;
  }
}

TEST(MqttOptionsTest, WithoutTlsItMustBeSaid) {
  Options all = options("b");
  all.files.ca.clear();
  EXPECT_THAT(failure_of(all), HasSubstr("--without-tls"));
  all.without_tls = true;
  EXPECT_EQ(place_of(all).port, 1883);
}

TEST(MqttOptionsTest, ADoorsNameIsOneLevelOfATopic) {
  Options all = options("b");
  all.door = "+";
  EXPECT_THAT(failure_of(all), HasSubstr("\"+\" is no door's name"));
}

TEST(MqttOptionsTest, TheFilesLinesCountWhereNothingElseIsGiven) {
  const refhost::test::TemporaryDirectory directory;
  const auto file = directory.path() / "conf";
  std::ofstream(file) << "# a door\ndoor = gate-9\nbroker=b.example\n\ndiscovery=true\n";
  Options all;
  all.broker = "other";
  read_options(file, all);
  EXPECT_EQ(all.door, "gate-9");
  EXPECT_EQ(all.broker, "other");
  EXPECT_TRUE(all.discovery);
}

TEST(MqttOptionsTest, ALineThatIsNoneIsNamed) {
  const refhost::test::TemporaryDirectory directory;
  const auto file = directory.path() / "conf";
  for (const char* line : {"brocker=x", "door", "discovery=yes"}) {
    std::ofstream(file) << "door=a\n" << line << "\n";
    Options all;
    try {
      read_options(file, all);
      FAIL() << line;
    } catch (const cli::Failure& failure) {
      EXPECT_THAT(failure.what(), HasSubstr("conf line 2: \""));
    }
  }
}

}  // namespace
}  // namespace mqtt
