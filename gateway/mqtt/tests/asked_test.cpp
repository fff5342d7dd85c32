#include "gateway/mqtt/asked.h"

#include <gmock/gmock.h>

namespace mqtt {
namespace {

using testing::HasSubstr;

constexpr std::int64_t kNow = 1'800'000'000'000;

Json request_of(std::string_view name, const std::string& payload, bool is_retained = false) {
  return asked_of(
             name,
             {.topic = "", .payload = payload, .is_retained = is_retained, .response_topic = "", .correlation = ""},
             kNow)
      .request;
}

std::string refusal_of(std::string_view name, const std::string& payload, bool is_retained = false) {
  try {
    return request_of(name, payload, is_retained).dump();
  } catch (const NotAsked& failure) {
    return failure.what();
  }
}

TEST(AskedTest, ACommandBecomesTheDaemonsOwn) {
  EXPECT_EQ(request_of("open", ""), Json({{"command", "door_open"}}));
  EXPECT_EQ(request_of("open", R"({"by": "Ana", "correlation": 3, "at": 1800000000000})"),
            Json({{"command", "door_open"}, {"on_behalf_of", "Ana"}}));
  EXPECT_EQ(request_of("mode", R"({"mode": "locked", "seconds": 5})"),
            Json({{"command", "door_mode"}, {"mode", "locked"}, {"seconds", 5}}));
  EXPECT_EQ(request_of("config", R"({"set": "uhf.region", "value": "EU"})"),
            Json({{"command", "config_set"}, {"section", "uhf"}, {"key", "region"}, {"value", "EU"}}));
}

TEST(AskedTest, NobodyBecomesAnotherOrAsksForAnotherCommand) {
  EXPECT_THAT(refusal_of("open", R"({"command": "restore"})"), HasSubstr("has no \"command\""));
  EXPECT_THAT(refusal_of("open", R"({"on_behalf_of": "Eve"})"), HasSubstr("has no \"on_behalf_of\""));
  EXPECT_THAT(refusal_of("restore", "{}"), HasSubstr("there is no such command: there are open"));
}

TEST(AskedTest, ACommandOfAnotherTimeIsRefused) {
  for (const std::int64_t at : {kNow - kOldestCommand, kNow, kNow + kOldestCommand}) {
    EXPECT_EQ(refusal_of("status", Json({{"at", at}}).dump()), R"({"command":"status"})");
  }
  for (const Json& at :
       {Json(kNow - kOldestCommand - 1), Json(kNow + kOldestCommand + 1), Json(0), Json(UINT64_MAX), Json(INT64_MIN)}) {
    EXPECT_THAT(refusal_of("status", Json({{"at", at}}).dump()), HasSubstr("not of now"));
  }
  EXPECT_THAT(refusal_of("status", R"({"at": "now"})"), HasSubstr("ms since 1970"));
}

TEST(AskedTest, AReplayNamesTheNumberBehindWhichItBegins) {
  EXPECT_EQ(request_of("replay", R"({"after": 7})"), Json({{"command", "replay"}, {"after", 7}}));
  for (const char* payload : {"{}", R"({"after": -1})", R"({"after": "7"})", R"({"after": 18446744073709551615})"}) {
    EXPECT_THAT(refusal_of("replay", payload), HasSubstr("\"after\" is to be a number")) << payload;
  }
}

TEST(AskedTest, ARetainedOneAndWhatIsNoneAreRefused) {
  EXPECT_THAT(refusal_of("open", "{}", true), HasSubstr("retained"));
  for (const char* payload : {"[]", "3", "{", "\xff", "null"}) {
    EXPECT_THAT(refusal_of("open", payload), HasSubstr("is a JSON object")) << payload;
  }
  const std::string deep = R"({"correlation": )" + std::string(30'000, '[') + std::string(30'000, ']') + "}";
  EXPECT_THAT(refusal_of("open", deep), HasSubstr("is a JSON object"));
  EXPECT_TRUE(correlation_of(deep).is_null());
  EXPECT_THAT(refusal_of("open", std::string(kLongestCommand + 1, ' ')), HasSubstr("at most"));
  EXPECT_THAT(refusal_of("config", R"({"get": "region"})"), HasSubstr("\"get\" is to be a setting"));
}

TEST(AskedTest, AnAnswerIsNeverTakenForWhatTheDoorTellsOfItself) {
  EXPECT_EQ(answer_topic("a", "open", "me/answers"), "me/answers");
  EXPECT_EQ(answer_topic("a", "open", "doors/a/answer/mine"), "doors/a/answer/mine");
  for (const char* topic : {"", "doors/a/journal/x", "doors/a/cmd/open", "doors/a/desired", "x/+", "#", "$SYS/x"}) {
    EXPECT_EQ(answer_topic("a", "open", topic), "doors/a/answer/open") << topic;
  }
}

}  // namespace
}  // namespace mqtt
