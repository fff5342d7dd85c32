#include "door/base/csv.h"

#include <gmock/gmock.h>

#include "door/base/encoding.h"

namespace achost {
namespace {

using Records = std::vector<std::vector<std::string>>;

Records records(std::string_view text) {
  Records all;
  CsvReader reader(text);
  for (std::vector<std::string> cells; reader.next(cells);) {
    all.push_back(cells);
  }
  return all;
}

// "LINE: text" of the failure.
std::string failure(std::string_view text) {
  try {
    records(text);
  } catch (const CsvError& error) {
    return std::to_string(error.line()) + ": " + error.what();
  }
  return "none";
}

TEST(Csv, RecordsEndWithEitherLineEndOrTheText) {
  EXPECT_EQ(records("a,b\r\nc,d\ne,"), Records({{"a", "b"}, {"c", "d"}, {"e", ""}}));
  EXPECT_EQ(records("a\n"), Records({{"a"}}));
  EXPECT_EQ(records(""), Records());
}

TEST(Csv, BlankLinesAreNoRecords) { EXPECT_EQ(records("\n\r\na\n\n\nb\n\n"), Records({{"a"}, {"b"}})); }

TEST(Csv, QuotesHoldCommasQuotesAndLineEnds) {
  EXPECT_EQ(records("\"a,\"\"b\"\"\r\nc\",\"\",x\n"), Records({{"a,\"b\"\r\nc", "", "x"}}));
}

TEST(Csv, TheLineOfARecordIsWhereItBegins) {
  CsvReader reader("a\n\"b\nc\"\n\nd\n");
  std::vector<std::string> cells;
  std::vector<std::size_t> lines;
  while (reader.next(cells)) {
    lines.push_back(reader.line());
  }
  EXPECT_EQ(lines, std::vector<std::size_t>({1, 2, 5}));
}

TEST(Csv, WhatIsWrongIsSaidWithItsLine) {
  EXPECT_THAT(failure("a\nb\"c\n"), testing::StartsWith("2: a quote inside a cell that is not in quotes"));
  EXPECT_THAT(failure("a\rb\n"), testing::StartsWith("1: a carriage return inside"));
  EXPECT_THAT(failure("a\n\"b\n\"c\n"), testing::StartsWith("3: behind a cell in quotes"));
  EXPECT_EQ(failure("a\n\"b\nc"), "2: the quotes of a cell that begins here do not end");
}

TEST(Csv, ACellThatIsWrittenIsReadAsItWas) {
  for (const std::string text : {"", "a", "a,b", "\"", "a\"b", "\r", "\n", "a\r\nb", " a "}) {
    std::string line = "x,";
    append_csv_cell(line, text);
    EXPECT_EQ(records(line), Records({{"x", text}})) << text;
  }
}

TEST(Csv, ACellThatWouldBeAFormulaStandsBehindAnApostropheAndComesBack) {
  for (const std::string text : {"=1+1", "+1", "-1", "@A1", "\tx", "\r=1", "\n=1"}) {
    EXPECT_EQ(as_safe_cell(text), "'" + text);
    EXPECT_EQ(from_safe_cell(as_safe_cell(text)), text);
    EXPECT_EQ(from_safe_cell(as_safe_cell("'" + text)), "'" + text) << "its own apostrophe";
    EXPECT_EQ(from_safe_cell(text), text) << "as another program writes it";
  }
}

TEST(Csv, AnApostropheBeforeAnythingElseStays) {
  for (const std::string text : {"'t Hart", "'", "''", "", "a=1", "'a'"}) {
    EXPECT_EQ(as_safe_cell(text), text);
    EXPECT_EQ(from_safe_cell(text), text);
  }
}

TEST(Encoding, TellsWhereATextStopsBeingUtf8) {
  for (const std::string text : {"", "a\n\x7f", "\xC3\xA7", "\xE2\x82\xAC", "\xF0\x9F\x9A\xAA", "\xF4\x8F\xBF\xBF",
                                 "\xED\x9F\xBF", "\xEE\x80\x80"}) {
    EXPECT_EQ(utf8_end(text), text.size()) << text;
  }
  for (const std::string wrong : {"\x80", "\xC3", "\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xE2\x82",
                                  "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80",
                                  "\xC3"
                                  "a"}) {
    EXPECT_EQ(utf8_end("ab" + wrong), 2U) << testing::PrintToString(wrong);
  }
}

}  // namespace
}  // namespace achost
