#include "gateway/mqtt/topics.h"

#include <gtest/gtest.h>

namespace mqtt::topics {
namespace {

TEST(TopicsTest, WhatNamesADoorIsOneLevelOfATopic) {
  for (const char* good : {"a", "gate-1", "0", "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef"}) {
    EXPECT_TRUE(is_id(good)) << good;
  }
  for (const char* bad : {"", "Gate", "a/b", "+", "#", "a b", "gate_1", "t\xC3\xBCr", "$SYS",
                          "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef0"}) {
    EXPECT_FALSE(is_id(bad)) << bad;
  }
}

TEST(TopicsTest, ADoorsTopicIsTakenApart) {
  const std::string topic = journal("gate-1", "denied");
  const auto place = place_of(topic);
  ASSERT_TRUE(place.has_value());
  EXPECT_EQ(place->door, "gate-1");
  EXPECT_EQ(place->rest, "journal/denied");
  EXPECT_EQ(behind(place->rest, "journal/"), "denied");
  EXPECT_FALSE(behind(place->rest, "live/").has_value());
}

TEST(TopicsTest, WhatIsNoDoorsTopicIsNone) {
  for (const char* topic : {"", "doors", "doors/", "doors/gate-1", "doors//state", "doors/Gate/state", "door/a/state",
                            "provision/a/request"}) {
    EXPECT_FALSE(place_of(topic).has_value()) << topic;
  }
}

TEST(TopicsTest, ANewDoorAsksByItsSerialNumber) {
  EXPECT_EQ(provision_request("4711"), "provision/new-4711/request");
  EXPECT_EQ(provision_answer("4711"), "provision/new-4711/answer");
  EXPECT_EQ(serial_of_request("provision/new-4711/request"), "4711");
  for (const char* topic : {"provision/new-4711/answer", "provision/4711/request", "provision/new-/request",
                            "provision/new-a/b/request", "provision/new-A/request", "doors/new-4711/request", ""}) {
    EXPECT_FALSE(serial_of_request(topic).has_value()) << topic;
  }
}

}  // namespace
}  // namespace mqtt::topics
