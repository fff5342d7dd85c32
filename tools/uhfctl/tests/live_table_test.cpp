// The table of tags in a terminal.
#include "live_table.h"

#include <gmock/gmock.h>

#include "recording.h"

namespace uhfctl {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using namespace std::chrono_literals;

const Clock::time_point kBegin{1000s};

Poll poll_of(const std::vector<std::pair<std::string, int>>& tags) {
  Poll poll;
  for (const auto& [epc, rssi] : tags) {
    poll.tags.push_back({static_cast<unsigned char>(rssi), 0x3000, parse_hex(epc, "test"), 0});
  }
  return poll;
}

std::vector<std::string> texts(const std::vector<LiveLine>& lines) {
  std::vector<std::string> texts;
  for (const auto& line : lines) {
    texts.push_back(line.text);
  }
  return texts;
}

class LiveTable : public ::testing::Test {
 protected:
  LiveTable() { tags.add(poll_of({{"E20068160000000000000001", 180}, {"3008332B12345678ABCDEF01", 90}}), kBegin); }

  std::vector<std::string> at(Clock::duration time, std::size_t columns, std::size_t rows = 24) const {
    return texts(live_table(tags, {}, kBegin + time, {.columns = columns, .rows = rows}));
  }

  Tags tags;
};

TEST_F(LiveTable, HasALineForEachTagWhereThereIsRoom) {
  EXPECT_THAT(at(100ms, 80),
              ElementsAre("EPC                       CARD        RSSI                      POLLS LAST SEEN",
                          "3008332B12345678ABCDEF01  2882400001   90 #######.............  100%  now",
                          "E20068160000000000000001  1           180 ##############......  100%  now"));
}

TEST_F(LiveTable, TellsHowLongAgo) { EXPECT_THAT(at(1500ms, 80)[1], ::testing::EndsWith("  1.5 s ago")); }

TEST_F(LiveTable, FoldsATagOnAPhone) {
  EXPECT_THAT(at(100ms, 40), ElementsAre("EPC, then CARD, RSSI, POLLS, LAST SEEN", "3008332B12345678ABCDEF01",
                                         "  2882400001   90 ##...  100%  now", "E20068160000000000000001",
                                         "  1           180 ####.  100%  now"));
}

TEST_F(LiveTable, IsNeverWiderThanTheTerminal) {
  tags.add(poll_of({{std::string(124, 'A'), 255}}), kBegin);
  for (std::size_t columns = 40; columns <= 200; ++columns) {
    for (const auto& line : at(100ms, columns)) {
      ASSERT_LE(line.size(), columns) << line;
    }
  }
  EXPECT_THAT(at(100ms, 40)[3], ::testing::StartsWith("..AAAA")) << "what does not fit is left out at its beginning";
}

TEST_F(LiveTable, IsNeverHigherThanTheTerminal) {
  for (int i = 0; i < 40; ++i) {
    tags.add(poll_of({{"AA" + std::to_string(i + 10), 200}}), kBegin);
  }
  for (const std::size_t columns : {40U, 120U}) {
    for (std::size_t rows = 5; rows < 100; ++rows) {
      const auto lines = at(100ms, columns, rows);
      ASSERT_LE(lines.size(), rows);
      ASSERT_EQ(lines.back().starts_with("and "), (lines.size() - 1) / (columns == 40 ? 2 : 1) < 42) << rows;
    }
  }
  EXPECT_EQ(at(100ms, 120, 12).back(), "and 32 tags more");
  EXPECT_EQ(whole_table(tags, {}, kBegin, 120).size(), 43U) << "all, at the end";
}

TEST_F(LiveTable, TellsTheShareOfTheLastPolls) {
  for (int i = 1; i < 100; ++i) {
    tags.add(poll_of(i % 4 == 0 ? std::vector<std::pair<std::string, int>>{{"3008332B12345678ABCDEF01", 90}}
                                : std::vector<std::pair<std::string, int>>{}),
             kBegin + i * 1ms);
  }
  EXPECT_THAT(at(100ms, 80)[1], HasSubstr("  25%  "));
  EXPECT_THAT(at(100ms, 80)[2], HasSubstr("   0%  ")) << "its one reading is long past";
}

TEST_F(LiveTable, ATagThatLeftIsFadedAndThenAway) {
  tags.add(poll_of({{"3008332B12345678ABCDEF01", 90}}), kBegin + 3s);
  const auto lines = live_table(tags, {}, kBegin + 3s, {});
  EXPECT_FALSE(lines[1].faded);
  EXPECT_TRUE(lines[2].faded);
  EXPECT_THAT(lines[2].text, HasSubstr("gone 3 s")) << "also without colours";
  EXPECT_EQ(live_table(tags, {}, kBegin + 10s, {}).size(), 2U);
  EXPECT_EQ(whole_table(tags, {}, kBegin + 10s, 80).size(), 3U) << "at the end nothing that was seen is missing";
}

TEST_F(LiveTable, TheCardIsThatOfTheSettings) {
  const auto lines = live_table(tags, {.identification_bits = 16, .from_front = true}, kBegin, {});
  EXPECT_THAT(lines[1].text, HasSubstr("  12296  "));
}

}  // namespace
}  // namespace uhfctl
