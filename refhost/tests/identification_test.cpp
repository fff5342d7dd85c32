#include "daemon/identification.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <ctime>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>

#include "daemon/printer.h"

namespace achost {
namespace {

// 2026-01-02 03:04:05.006 UTC
const auto kTime = std::chrono::system_clock::time_point(std::chrono::milliseconds(1767323045006));

class IdentificationTest : public testing::Test {
 protected:
  IdentificationTest() { set_zone("UTC"); }
  ~IdentificationTest() override { unsetenv("TZ"); }

  static void set_zone(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
  }

  Identification identification{.time = kTime, .card = 0x12345678, .device_id = 7, .uuid = "a-uuid"};
};

TEST_F(IdentificationTest, ComesFromItsMessage) {
  ac::Message message("identifier_new_card");
  message.add_int64("value", -1);
  message.add_int64("device_id", 7);
  message.add_string("uuid", "a-uuid");
  const auto found = Identification::from(message, kTime);
  EXPECT_EQ(found.card, std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(found.device_id, 7);
  EXPECT_EQ(found.uuid, "a-uuid");
  EXPECT_EQ(found.time, kTime);
}

TEST_F(IdentificationTest, FieldsThatAreMissingAreZeroOrEmpty) {
  const auto found = Identification::from(ac::Message("identifier_new_card"), kTime);
  EXPECT_EQ(found.card, 0U);
  EXPECT_EQ(found.device_id, 0);
  EXPECT_EQ(found.uuid, "");
}

TEST_F(IdentificationTest, LineIsReadableAtAGlance) {
  EXPECT_EQ(identification.line(false), "03:04:05.006  card 305419896 (0x12345678)   device 7  a-uuid");
}

TEST_F(IdentificationTest, ColumnsStandBelowOneAnotherForCardsOf32Bits) {
  const auto column = [&](std::uint64_t card) {
    identification.card = card;
    return identification.line(false).find("device");
  };
  EXPECT_EQ(column(0), column(0xFFFFFFFF));
  EXPECT_EQ(column(1), column(0x12345678));
}

TEST_F(IdentificationTest, ColouredLineIsTheSameOtherwise) {
  std::string line = identification.line(true);
  EXPECT_NE(line.find("card \x1b[1;32m305419896\x1b[0m (0x12345678)"), std::string::npos) << line;
  line.erase(line.find("\x1b[1;32m"), 7);
  line.erase(line.find("\x1b[0m"), 4);
  EXPECT_EQ(line, identification.line(false));
}

TEST_F(IdentificationTest, JsonHasTheCardInDecimalAndHexadecimal) {
  identification.card = std::numeric_limits<std::uint64_t>::max();
  EXPECT_EQ(identification.json(),
            R"({"event":"identification","time":"2026-01-02T03:04:05.006+00:00","card":18446744073709551615,)"
            R"("card_hex":"0xffffffffffffffff","device_id":7,"uuid":"a-uuid"})");
}

TEST_F(IdentificationTest, JsonTimeHasTheZone) {
  set_zone("XXX+3:30");  // as POSIX has it: west of Greenwich
  EXPECT_NE(identification.json().find("\"2026-01-01T23:34:05.006-03:30\""), std::string::npos)
      << identification.json();
}

TEST_F(IdentificationTest, JsonStaysOneLineOfValidTextWhateverTheUuid) {
  identification.uuid = "a\n\"\xff";
  const std::string json = identification.json();
  EXPECT_EQ(json.find('\n'), std::string::npos);
  EXPECT_TRUE(nlohmann::json::accept(json)) << json;
}

TEST(Summary, CountsIdentificationsAndCards) {
  EXPECT_EQ(summary_text(12.04, 7, 4, 100), "12.0 s: 7 identifications of 4 cards");
  EXPECT_EQ(summary_text(0.5, 1, 1, 100), "0.5 s: 1 identification of 1 card");
  EXPECT_EQ(summary_text(1, 0, 0, 100), "1.0 s: 0 identifications of 0 cards");
  EXPECT_EQ(summary_text(1, 500, 100, 100), "1.0 s: 500 identifications of at least 100 cards");
}

}  // namespace
}  // namespace achost
