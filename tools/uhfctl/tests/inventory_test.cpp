// The tags in the field.
#include <signal.h>

#include "run.h"

namespace uhfctl::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class Inventory : public WithReader {};

TEST_F(Inventory, TellsEachTag) {
  const auto [status, out, err] = uhfctl({"inventory", "--seconds", "0.3"});
  EXPECT_EQ(status, 0) << err;
  EXPECT_THAT(out, HasSubstr("EPC       RSSI  PC"));
  EXPECT_THAT(out, HasSubstr("300833B2  90    1000"));
  EXPECT_THAT(out, HasSubstr("E2000001  180   1000"));
}

TEST_F(Inventory, AsObjectsWithCardValues) {
  const auto tags = objects_of(
      uhfctl({"inventory", "--seconds", "0.2", "--json", "--card-value", "--identification-bits", "24"}).out);
  ASSERT_EQ(tags.size(), 2U);
  EXPECT_EQ(tags[0]["epc"], "300833B2");
  EXPECT_EQ(tags[0]["card_value"], 0x00000008000033B2ULL);
  EXPECT_GE(tags[0]["times"], 1);
  EXPECT_LE(tags[0]["first"], tags[0]["last"]);
}

TEST_F(Inventory, CardValuesFromTheFront) {
  const auto tags = objects_of(uhfctl({"inventory", "--seconds", "0.2", "--json", "--card-value",
                                       "--identification-bits", "16", "--reader-type", "LSB"})
                                   .out);
  ASSERT_EQ(tags.size(), 2U);
  EXPECT_EQ(tags[1]["card_value"], 0xE200);
}

TEST_F(Inventory, AFilterLeavesTheOthersOut) {
  const auto out = uhfctl({"inventory", "--seconds", "0.2", "--filter", "e2"}).out;
  EXPECT_THAT(out, HasSubstr("E2000001"));
  EXPECT_THAT(out, Not(HasSubstr("300833B2")));
  EXPECT_EQ(uhfctl({"inventory", "--filter", "xy"}).status, 2);
}

TEST_F(Inventory, ACountEndsIt) { EXPECT_EQ(uhfctl({"inventory", "--seconds", "100", "--count", "2"}).status, 0); }

TEST_F(Inventory, NoTagIsSaidAndNoError) {
  reader.field().clear();
  const auto [status, out, err] = uhfctl({"inventory", "--seconds", "0.2"});
  EXPECT_EQ(status, 0);
  EXPECT_THAT(err, HasSubstr("no tag in 0."));
}

TEST_F(Inventory, AReaderThatStopsAnsweringIsNoticed) {
  uhfsim::testing::Process process(UHFCTL,
                                   {"--port", reader.path(), "--timeout", "100", "inventory", "--seconds", "0"});
  while (reader.counters().notices == 0) {
    usleep(1000);
  }
  reader.faults().set("silence", 1);
  EXPECT_EQ(process.wait(), 4);
  EXPECT_THAT(process.read_all_errors(), HasSubstr("has stopped answering"));
}

TEST_F(Inventory, CtrlCEndsItWithItsTable) {
  uhfsim::testing::Process process(UHFCTL, {"--port", reader.path(), "inventory", "--seconds", "0"});
  while (reader.counters().notices == 0) {
    usleep(1000);
  }
  process.signal(SIGINT);
  EXPECT_THAT(process.read_all(), HasSubstr("E2000001"));
  EXPECT_EQ(process.wait(), 0);
}

TEST_F(Inventory, BytesThatAreNoFrameHarmNothing) {
  reader.faults().set("junk", 0.3);
  reader.faults().set("flip-bit", 0.2);
  const auto [status, out, err] = uhfctl({"--timeout", "100", "inventory", "--seconds", "2"});
  EXPECT_EQ(status, 0) << err;
  EXPECT_THAT(out, HasSubstr("E2000001"));
}

}  // namespace
}  // namespace uhfctl::testing
