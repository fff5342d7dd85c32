#include "uhfsim/faults.h"

#include <gmock/gmock.h>

#include <limits>
#include <stdexcept>

#include "hex.h"

namespace uhfsim::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST(FaultInjector, PassesEveryReplyWhenNothingIsOn) {
  FaultInjector faults(1);
  EXPECT_THAT(faults.intercept(kPower2600), ElementsAre(kPower2600));
}

TEST(FaultInjector, KnowsItsNames) { EXPECT_THAT(FaultInjector::names(), ElementsAre("silence", "corrupt-checksum")); }

TEST(FaultInjector, SilenceDropsTheReply) {
  FaultInjector faults(1);
  faults.set("silence", 1);
  EXPECT_THAT(faults.intercept(kPower2600), IsEmpty());
}

TEST(FaultInjector, CorruptChecksumChangesThatByteAlone) {
  FaultInjector faults(1);
  faults.set("corrupt-checksum", 1);
  EXPECT_THAT(faults.intercept(kPower2600), ElementsAre(hex("7F 01 B7 00 02 0A 28 13 7E")));
}

TEST(FaultInjector, CorruptChecksumOfAnInventoryHitsTheLastNotice) {
  FaultInjector faults(1);
  faults.set("corrupt-checksum", 1);
  EXPECT_THAT(faults.intercept(kNothingRead + kNothingRead),
              ElementsAre(kNothingRead + hex("7F 01 FF 00 01 15 E9 7E")));
}

TEST(FaultInjector, ZeroSwitchesOff) {
  FaultInjector faults(1);
  faults.set("silence", 1);
  faults.set("silence", 0);
  EXPECT_THAT(faults.intercept(kPower2600), ElementsAre(kPower2600));
}

TEST(FaultInjector, SilenceAndCorruptChecksumTogetherAreSilence) {
  FaultInjector faults(1);
  faults.set("corrupt-checksum", 1);
  faults.set("silence", 1);
  EXPECT_THAT(faults.intercept(kPower2600), IsEmpty());
}

std::vector<bool> silenced(std::uint64_t seed, double probability, int replies) {
  FaultInjector faults(seed);
  faults.set("silence", probability);
  std::vector<bool> silenced;
  for (int i = 0; i < replies; ++i) silenced.push_back(faults.intercept(kPower2600).empty());
  return silenced;
}

TEST(FaultInjector, ProbabilityIsTheShareOfRepliesThatSuffer) {
  const auto outcome = silenced(1, 0.25, 4000);
  EXPECT_NEAR(static_cast<double>(std::count(outcome.begin(), outcome.end(), true)), 1000, 100);
}

TEST(FaultInjector, SeedDecidesWhichRepliesSuffer) {
  EXPECT_EQ(silenced(7, 0.5, 100), silenced(7, 0.5, 100));
  EXPECT_NE(silenced(7, 0.5, 100), silenced(8, 0.5, 100));
}

TEST(FaultInjector, UnknownNameIsRefusedWithTheKnownOnes) {
  FaultInjector faults(1);
  try {
    faults.set("silense", 1);
    FAIL() << "no exception";
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(), "unknown fault \"silense\"; expected silence or corrupt-checksum");
  }
}

TEST(FaultInjector, ProbabilityOutsideZeroToOneIsRefused) {
  FaultInjector faults(1);
  EXPECT_THROW(faults.set("silence", -0.01), std::invalid_argument);
  EXPECT_THROW(faults.set("silence", 1.01), std::invalid_argument);
  EXPECT_THROW(faults.set("silence", std::numeric_limits<double>::quiet_NaN()), std::invalid_argument);
  EXPECT_THAT(faults.intercept(kPower2600), ElementsAre(kPower2600));
}

}  // namespace
}  // namespace uhfsim::testing
