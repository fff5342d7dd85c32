#include "door/base/assignment.h"

#include <gtest/gtest.h>

#include <string>

#include "door/base/failure.h"

namespace achost {
namespace {

void expect(const std::string& text, const Assignment& expected) {
  const auto found = parse_assignment(text);
  EXPECT_EQ(found.section, expected.section) << text;
  EXPECT_EQ(found.key, expected.key) << text;
  EXPECT_EQ(found.value, expected.value) << text;
}

std::string refusal(const std::string& text) {
  try {
    parse_assignment(text);
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), kUsage) << text;
    return failure.what();
  }
  return "";
}

TEST(Assignment, KeyWithoutASectionIsOfThePlugin) { expect("read_interval=5000", {"uhf", "read_interval", "5000"}); }

TEST(Assignment, SectionMayBeGiven) {
  expect("host.device_id=5", {"host", "device_id", "5"});
  expect("uhf.region=KOREA", {"uhf", "region", "KOREA"});
}

TEST(Assignment, ValueIsEverythingAfterTheFirstEqualsSign) {
  expect("work_channel_enable=", {"uhf", "work_channel_enable", ""});
  expect("work_channel_enable=a=b.c", {"uhf", "work_channel_enable", "a=b.c"});
}

TEST(Assignment, MissingEqualsSignOrKeyIsRefused) {
  EXPECT_EQ(refusal("read_interval"), "--set read_interval: give KEY=VALUE, for example --set read_interval=5000");
  EXPECT_NE(refusal("=5"), "");
  EXPECT_NE(refusal(""), "");
}

TEST(Assignment, ValueAndKeyAreChecked) {
  EXPECT_NE(refusal("read_interval=soon").find("setting read_interval cannot be \"soon\""), std::string::npos);
  EXPECT_NE(refusal("reed_interval=1").find("the nearest is read_interval"), std::string::npos);
  EXPECT_NE(refusal("host.region=KOREA").find("there is no setting region in section host"), std::string::npos);
}

TEST(Assignment, AllAreChecked) {
  EXPECT_EQ(parse_assignments({"region=KOREA", "host.device_id=2"}).size(), 2U);
  EXPECT_THROW(parse_assignments({"region=KOREA", "region=MARS"}), Failure);
}

}  // namespace
}  // namespace achost
