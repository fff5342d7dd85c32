#include "gateway/mqtt/document.h"

#include <gmock/gmock.h>

namespace mqtt {
namespace {

using testing::HasSubstr;

const std::string kHash = "0123456789abcdef0123456789abcdef";

std::string failure_of(const std::string& text) {
  try {
    manifest_of(text);
    return "";
  } catch (const BadManifest& failure) {
    return failure.what();
  }
}

TEST(DocumentTest, AManifestNamesItsRevisionAndItsParts) {
  const Manifest manifest =
      manifest_of(R"({"revision": 7, "by": "Ana", "parts": [{"hash": ")" + kHash + R"(", "bytes": 3}]})");
  EXPECT_EQ(manifest.revision, 7);
  EXPECT_EQ(manifest.by, "Ana");
  EXPECT_EQ(manifest.parts, std::vector{kHash});
}

TEST(DocumentTest, WhatIsNoManifestIsRefusedSoThatNoFileIsNamedByIt) {
  for (const char* text : {"", "[]", "{}", R"({"revision": "7", "parts": []})", R"({"revision": 7, "parts": {}})"}) {
    EXPECT_THAT(failure_of(text), HasSubstr("what is desired is to be")) << text;
  }
  for (const char* hash :
       {"../../../../etc/passwd/0000000000", "0123456789ABCDEF0123456789abcdef", "", "applied.json"}) {
    EXPECT_THAT(failure_of(R"({"revision": 7, "parts": [{"hash": ")" + std::string(hash) + R"("}]})"),
                HasSubstr("32 hexadecimal digits"));
  }
  const std::string deep = std::string(120'000, '[') + std::string(120'000, ']');
  EXPECT_THAT(failure_of(R"({"revision": )" + deep + R"(, "parts": []})"), HasSubstr("what is desired is to be"));
  EXPECT_THAT(failure_of(R"({"revision": 0, "parts": []})"), HasSubstr("1 or more"));
  EXPECT_THAT(failure_of(R"({"revision": 18446744073709551615, "parts": []})"), HasSubstr("1 or more"));
}

TEST(DocumentTest, APartIsNamedByItsContent) { EXPECT_EQ(hash_of("abc"), "ba7816bf8f01cfea414140de5dae2223"); }

TEST(DocumentTest, ADifferenceHasWhatIsOtherAndWhatHasGone) {
  const std::string one =
      "{\"user\": 1, \"name\": \"a\"}\n{\"user\": 2}\n{\"setting\": \"uhf.region\", \"value\": \"EU\"}\n";
  const std::string other = "{\"user\": 1, \"name\": \"b\"}\n{\"user\": 3}";
  const Difference different = difference({one}, {other});
  EXPECT_EQ(
      different.lines,
      "{\"remove_user\": 2}\n{\"user\": 1, \"name\": \"b\"}\n{\"user\": 3}\n{\"remove_setting\": \"uhf.region\"}\n");
  EXPECT_FALSE(different.needs_schedules);
}

TEST(DocumentTest, OneOtherRowOfSchedulesNeedsThemAll) {
  EXPECT_TRUE(difference({"{\"schedule\": \"a\"}\n"}, {"{\"user\": 1}\n"}).needs_schedules);
  EXPECT_FALSE(difference({"{\"schedule\": \"a\"}\n"}, {"{\"user\": 1}\n{\"schedule\": \"a\"}\n"}).needs_schedules);
  EXPECT_EQ(schedules_of("{\"user\": 1, \"schedule\": \"a\"}\n{\"schedule\": \"a\"}\n"), "{\"schedule\": \"a\"}\n");
}

TEST(DocumentTest, WhoGoesIsKnown) {
  EXPECT_TRUE(difference({"{\"user\": 1}\n{\"user\": 2}\n"}, {"{\"user\": 2}\n"}).removes_users);
  EXPECT_TRUE(difference({"{\"user\": 1}\n"}, {"{\"remove_users\": true}\n"}).removes_users);
  EXPECT_FALSE(difference({"{\"user\": 1}\n"}, {"{\"user\": 1, \"name\": \"b\"}\n{\"user\": 2}\n"}).removes_users);
}

TEST(DocumentTest, ThatThereAreNoSchedulesIsOtherThanThatNothingIsSaidOfThem) {
  EXPECT_TRUE(difference({"{\"remove_schedules\": true}\n"}, {}).needs_schedules);
  EXPECT_TRUE(says("{\"user\": 1}\n{\"remove_schedules\": true}\n", "remove_schedules"));
  EXPECT_FALSE(says("{\"user\": 1, \"name\": \"remove_schedules\"}\nx\n", "remove_schedules"));
}

TEST(DocumentTest, ALineAboutNothingIsRefused) {
  for (const char* const line : {"x\n", "{\"usr\": 1}\n"}) {
    EXPECT_THROW(difference({line}, {}), BadManifest) << line;
  }
}

}  // namespace
}  // namespace mqtt
