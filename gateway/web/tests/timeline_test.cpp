#include "gateway/web/timeline.h"

#include <gmock/gmock.h>

namespace web {
namespace {

using testing::HasSubstr;
using testing::Not;

Json following(const std::string& journal, int after) {
  return {{"ok", true}, {"following", true}, {"journal", journal}, {"after", after}};
}

Json entry(int number) { return {{"entry", {{"number", number}, {"kind", "opening"}}}}; }

std::string told(int number) { return "\"number\":" + std::to_string(number) + ","; }

TEST(TimelineTest, BeginsWithTheLatestAndGoesOnFromTheLastEntry) {
  Timeline timeline;
  EXPECT_EQ(timeline.request().at("last"), Timeline::kMost);
  timeline.take(following("j", 4));
  timeline.take(entry(7));
  EXPECT_EQ(timeline.request().at("after"), 7);
  EXPECT_EQ(timeline.request().at("journal"), "j");
  EXPECT_FALSE(timeline.request().contains("last"));
}

TEST(TimelineTest, WhoComesBackGetsWhatIsBehindHisLastEvent) {
  Timeline timeline;
  timeline.take(following("j", 0));
  for (int number = 1; number <= 3; ++number) {
    timeline.take(entry(number));
  }
  EXPECT_THAT(timeline.since("j:2"), HasSubstr(told(3)));
  EXPECT_THAT(timeline.since("j:2"), Not(HasSubstr(told(2))));
  EXPECT_EQ(timeline.since("j:3"), "");
}

TEST(TimelineTest, WhoseLastEventIsUnknownBeginsAnew) {
  Timeline timeline;
  timeline.take(following("j", 0));
  for (std::size_t i = 1; i <= Timeline::kMost + 5; ++i) {
    timeline.take(entry(static_cast<int>(i)));
  }
  for (const char* id : {"", "j", "j:", "other:200", "j:2", "j:9999999", "j:x", ":", "j:-1"}) {
    EXPECT_THAT(timeline.since(id), HasSubstr("event: timeline")) << id;
    EXPECT_THAT(timeline.since(id), HasSubstr(told(6))) << id;
    EXPECT_THAT(timeline.since(id), Not(HasSubstr(told(5)))) << id;
  }
}

TEST(TimelineTest, AnotherJournalOrAGapBeginsAnewForAll) {
  Timeline timeline;
  timeline.take(following("j", 0));
  timeline.take(entry(1));
  EXPECT_EQ(timeline.take(following("j", 1)), "");
  EXPECT_THAT(timeline.take({{"gap", {{"reason", "gone"}, {"first", 2}, {"last", 9}}}}), HasSubstr("event: timeline"));
  EXPECT_THAT(timeline.since(""), Not(HasSubstr(told(1))));
  timeline.take(entry(10));
  EXPECT_THAT(timeline.take(following("k", 3)), HasSubstr("event: timeline"));
  EXPECT_THAT(timeline.since("j:10"), Not(HasSubstr(told(10))));
}

TEST(TimelineTest, ATextOfAnEntryCannotEndItsEvent) {
  Timeline timeline;
  timeline.take(following("j", 0));
  const std::string text = timeline.take({{"entry", {{"number", 1}, {"name", "a\n\nevent: status\ndata: {}"}}}});
  EXPECT_EQ(text.find("\n\n"), text.size() - 2);
}

}  // namespace
}  // namespace web
