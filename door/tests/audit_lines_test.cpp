#include "door/cli/audit_lines.h"

#include <gmock/gmock.h>
#include <stdlib.h>

#include <ctime>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

namespace achost {
namespace {

using refhost::AuditEntry;

class AuditLinesTest : public testing::Test {
 protected:
  AuditLinesTest() {
    setenv("TZ", "XXX-2", 1);  // two hours east, as POSIX has it
    tzset();
  }
  ~AuditLinesTest() override { unsetenv("TZ"); }

  static std::string line(const AuditEntry& entry, AuditForm form) {
    std::string text = "before ";
    AuditLines(form).append(text, entry);
    return text.substr(7);
  }

  const AuditEntry entry{.id = 7, .at = 1767323045006, .record = {.time = "t", .type = 1, .details = "a, \"b\"\nc"}};
};

TEST_F(AuditLinesTest, TheHeadingStandsAboveItsColumns) {
  EXPECT_EQ(AuditLines(AuditForm::table).heading(), "RECORD    WRITTEN                        TYPE     DETAILS\n");
  EXPECT_EQ(AuditLines(AuditForm::json).heading(), "");
}

TEST_F(AuditLinesTest, ATableHasOneLineARecord) {
  EXPECT_EQ(line(entry, AuditForm::table), "7         2026-01-02T05:04:05.006+02:00  config   a, \"b\"\\nc\n");
}

TEST_F(AuditLinesTest, NoTimeBringsControlCharactersToATerminal) {
  const refhost::AuditEntry odd{.id = 1, .at = 0, .record = {.time = "\x1b[2J", .type = 1, .details = ""}};
  EXPECT_THAT(line(odd, AuditForm::table), testing::Not(testing::HasSubstr("\x1b")));
}

TEST_F(AuditLinesTest, CsvQuotesWhatNeedsIt) {
  EXPECT_EQ(AuditLines(AuditForm::csv).heading(), "id,written,type,details,time\r\n");
  EXPECT_EQ(line(entry, AuditForm::csv), "7,2026-01-02T05:04:05.006+02:00,config,\"a, \"\"b\"\"\nc\",t\r\n");
}

TEST_F(AuditLinesTest, BothTimesHaveOneForm) {
  AuditEntry old = entry;
  for (const char* time : {"2026-01-02 05:04:05.006", "2026-01-02T05:04:05.006+02:00"}) {
    old.record = {.time = time, .type = 1, .details = "d"};
    EXPECT_EQ(line(old, AuditForm::csv), "7,2026-01-02T05:04:05.006+02:00,config,d,2026-01-02T05:04:05.006+02:00\r\n");
  }
  old.at = 0;
  EXPECT_THAT(line(old, AuditForm::json), testing::HasSubstr("\"written\":\"2026-01-02T05:04:05.006+02:00\""));
}

TEST_F(AuditLinesTest, ACsvCellIsNoFormula) {
  AuditEntry odd = entry;
  for (const auto& [details, cell] :
       std::vector<std::pair<std::string, std::string>>{{"=1+1", "'=1+1"},
                                                        {"+cmd|' /C calc'!A0", "'+cmd|' /C calc'!A0"},
                                                        {"-2+3", "'-2+3"},
                                                        {"-inf", "'-inf"},
                                                        {"@SUM(1,2)", "\"'@SUM(1,2)\""},
                                                        {"\t=1", "'\t=1"},
                                                        {"\r=1", "\"'\r=1\""},
                                                        {"'quoted'", "''quoted'"},
                                                        {"-12.5", "-12.5"},
                                                        {"+7", "+7"},
                                                        {"-", "'-"},
                                                        {"a=1", "a=1"},
                                                        {"", ""}}) {
    odd.record = {.time = "t", .type = -3, .details = details};
    EXPECT_EQ(line(odd, AuditForm::csv), "7,2026-01-02T05:04:05.006+02:00,-3," + cell + ",t\r\n");
  }
}

TEST_F(AuditLinesTest, JsonHasEveryField) {
  EXPECT_EQ(line(entry, AuditForm::json),
            "{\"id\":7,\"written\":\"2026-01-02T05:04:05.006+02:00\",\"type\":\"config\",\"details\":\"a, "
            "\\\"b\\\"\\nc\",\"time\":\"t\"}\n");
}

TEST_F(AuditLinesTest, AnUnknownTypeIsItsNumberAndAnUnknownTimeIsTheWrittenOne) {
  const refhost::AuditEntry odd{.id = 1, .at = 0, .record = {.time = "then", .type = 12, .details = "\xff"}};
  EXPECT_EQ(line(odd, AuditForm::csv), "1,then,12,\xff,then\r\n");
  EXPECT_TRUE(nlohmann::json::accept(line(odd, AuditForm::json)));
}

TEST_F(AuditLinesTest, LinesFollowEachOtherAndKeepNothingOfTheOneBefore) {
  AuditLines lines(AuditForm::csv);
  std::string text;
  lines.append(text, entry);
  lines.append(text, {.id = 8, .at = 0, .record = {.time = "u", .type = 2, .details = ""}});
  lines.append(text, {.id = 9, .at = entry.at, .record = {.time = "v", .type = 2, .details = ""}});
  EXPECT_EQ(text,
            "7,2026-01-02T05:04:05.006+02:00,config,\"a, \"\"b\"\"\nc\",t\r\n8,u,api,,u\r\n"
            "9,2026-01-02T05:04:05.006+02:00,api,,v\r\n");
}

TEST_F(AuditLinesTest, ATimeOfAnotherHourThanTheWrittenOneStaysOfItsOwn) {
  AuditEntry late = entry;
  late.record = {.time = "2026-01-02 04:59:59.999", .type = 1, .details = "d"};
  EXPECT_EQ(line(late, AuditForm::csv), "7,2026-01-02T05:04:05.006+02:00,config,d,2026-01-02T04:59:59.999+02:00\r\n");
}

TEST_F(AuditLinesTest, ATimeOfBeforeTheClocksChangedHasTheZoneOfThen) {
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  tzset();
  AuditEntry late = entry;
  late.at = 1774746000500;  // 2026-03-29, just after
  late.record = {.time = "2026-03-29 01:59:59.999", .type = 1, .details = "d"};
  EXPECT_EQ(line(late, AuditForm::csv), "7,2026-03-29T03:00:00.500+02:00,config,d,2026-03-29T01:59:59.999+01:00\r\n");
}

// What JSON must write otherwise is left to the library, also when only one character of the text needs it.
TEST_F(AuditLinesTest, EveryTextComesBackFromItsJson) {
  AuditEntry odd = entry;
  for (int c = 0; c < 0x80; ++c) {
    odd.record.details = "Karte " + std::string(1, static_cast<char>(c)) + " \u00e9";
    EXPECT_EQ(nlohmann::json::parse(line(odd, AuditForm::json)).at("details"), odd.record.details) << c;
    odd.record.details = "card " + std::string(1, static_cast<char>(c));
    EXPECT_EQ(nlohmann::json::parse(line(odd, AuditForm::json)).at("details"), odd.record.details) << c;
  }
}

}  // namespace
}  // namespace achost
