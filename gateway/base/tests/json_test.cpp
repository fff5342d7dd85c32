#include "gateway/base/json.h"

#include <gtest/gtest.h>

#include <string>

namespace gateway {
namespace {

std::string nested(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

TEST(ParsedJson, IsWhatTheTextSays) {
  EXPECT_EQ(parsed(R"({"a": [1, {"b": null}], "c": "d"})"), Json({{"a", {1, {{"b", nullptr}}}}, {"c", "d"}}));
  for (const char* const text : {"", "{", "nothing", "{} {}"}) {
    EXPECT_TRUE(parsed(text).is_discarded()) << text;
  }
}

// To copy it, or to write it out, takes the more of the stack the deeper it is.
TEST(ParsedJson, ThatIsNestedTooDeepIsNone) {
  EXPECT_TRUE(parsed(nested(kDeepest)).is_array());
  EXPECT_TRUE(parsed(nested(kDeepest + 1)).is_discarded());
  EXPECT_TRUE(parsed(nested(1'000'000)).is_discarded());
  EXPECT_TRUE(parsed(R"({"first": )" + nested(kDeepest) + R"(, "then": 1})").is_discarded())
      << "whatever comes behind it";
}

}  // namespace
}  // namespace gateway
