// The tags in the field.
#include <signal.h>

#include <map>

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

// The first object of each tag.
std::map<std::string, nlohmann::json> first_of_each(const std::string& text) {
  std::map<std::string, nlohmann::json> tags;
  for (const auto& object : objects_of(text)) {
    tags.try_emplace(object["epc"], object);
  }
  return tags;
}

TEST_F(Inventory, AsAnObjectASighting) {
  const auto out = uhfctl({"inventory", "--seconds", "0.2", "--json", "--identification-bits", "24"}).out;
  EXPECT_EQ(objects_of(out).size(), reader.counters().notices) << "each of them";
  auto tags = first_of_each(out);
  ASSERT_EQ(tags.size(), 2U);
  EXPECT_EQ(tags["300833B2"]["card_value"], 0x00000008000033B2ULL);
  EXPECT_EQ(tags["300833B2"]["rssi"], 90);
  EXPECT_LE(tags["300833B2"]["time"], 0.2);
}

TEST_F(Inventory, SightingsComeAsTheyAreMade) {
  uhfsim::testing::Process process(UHFCTL, {"--port", reader.path(), "inventory", "--seconds", "0", "--json"});
  EXPECT_THAT(process.read_line(), HasSubstr("\"epc\""));
  process.signal(SIGINT);
  process.read_all();
  EXPECT_EQ(process.wait(), 0);
}

TEST_F(Inventory, CardValuesFromTheFront) {
  auto tags = first_of_each(uhfctl({"inventory", "--seconds", "0.2", "--json", "--identification-bits", "16",
                                    "--reader-type", "LSB", "--filter", "E2"})
                                .out);
  ASSERT_EQ(tags.size(), 1U);
  EXPECT_EQ(tags["E2000001"]["card_value"], 0xE200);
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
  EXPECT_THAT(process.read_all(), HasSubstr("E2000001")) << "what was found is not lost";
  EXPECT_THAT(process.read_all_errors(), HasSubstr("has stopped answering"));
}

TEST_F(Inventory, AnAdapterThatIsPulledOutIsSaidWithTheWayOut) {
  uhfsim::testing::Process process(UHFCTL,
                                   {"--port", reader.path(), "--timeout", "100", "inventory", "--seconds", "0"});
  while (reader.counters().notices < 2) {  // with the second one asked for, the first has been read
    usleep(1000);
  }
  const auto port = reader.path();
  reader.faults().set("hang-up", 1);
  EXPECT_EQ(process.wait(), 1);
  EXPECT_THAT(process.read_all(), HasSubstr("E2000001"));
  EXPECT_THAT(process.read_all_errors(), HasSubstr(port + " is gone: was the adapter pulled out? Plug it in"));
}

TEST_F(Inventory, ANoisyLineIsSaid) {
  reader.faults().set("corrupt-checksum", 0.3);
  const auto err = uhfctl({"--timeout", "100", "inventory", "--seconds", "0.5"}).err;
  EXPECT_THAT(err, ::testing::ContainsRegex("noisy line: [0-9]+ of [0-9]+ polls bad \\([0-9]+ %\\): [0-9]+ wrong "
                                            "checksum: shorten the cable"));
  reader.faults().clear();
  EXPECT_EQ(uhfctl({"inventory", "--seconds", "0.2"}).err, "");
}

TEST_F(Inventory, CtrlCEndsItWithItsTable) {
  uhfsim::testing::Process process(UHFCTL, {"--port", reader.path(), "inventory", "--seconds", "0"});
  while (reader.counters().notices < 10) {  // of several polls: what the first ones brought has been taken
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
