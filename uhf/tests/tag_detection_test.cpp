// The tag-detector relay.
#include <gmock/gmock.h>

#include "fake_clock.h"
#include "reading_loop.h"
#include "second_host.h"

using second_host::host;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using testing::ElementsAre;

namespace {

class TagDetection : public testing::Test {
 protected:
  void SetUp() override {
    host().reset();
    fake_clock::freeze();
    tagDetectorTagPresentTimeout = 500;
    tagDetectorRelayGPIO = 17;
    tagDetectorValue = 0;
  }
  void TearDown() override { fake_clock::release(); }

  void update(bool inventorySucceeded) { update_tag_detection(inventorySucceeded, lastSeen); }

  // The values sent to the relay so far.
  static std::vector<int> sent() {
    std::vector<int> values;
    for (const auto& message : host().messages("gpio_set_value")) {
      EXPECT_EQ(message.fields.at(0), (std::pair<std::string, second_host::Value>("gpio", 17)));
      EXPECT_EQ(message.fields.at(1).first, "value");
      EXPECT_EQ(message.fields.size(), 2U);
      EXPECT_EQ(message.argument, 0);
      EXPECT_FALSE(message.has_callback);
      EXPECT_FALSE(message.synchronous);
      values.push_back(std::get<int>(message.fields.at(1).second));
    }
    return values;
  }

  std::chrono::steady_clock::time_point lastSeen;
};

}  // namespace

TEST_F(TagDetection, ASuccessfulInventoryIsATagPresent) {
  update(true);
  EXPECT_THAT(sent(), ElementsAre(1));
  EXPECT_EQ(tagDetectorValue, 1);
  EXPECT_EQ(lastSeen, fake_clock::now());
}

TEST_F(TagDetection, AMessageIsSentOnAChangeOnly) {
  update(true);
  update(true);
  update(false);
  EXPECT_THAT(sent(), ElementsAre(1));
}

TEST_F(TagDetection, TheTagStaysPresentUntilItsTimeout) {
  update(true);
  fake_clock::advance(milliseconds(500) - nanoseconds(1));
  update(false);
  EXPECT_THAT(sent(), ElementsAre(1));
  fake_clock::advance(nanoseconds(1));
  update(false);
  EXPECT_THAT(sent(), ElementsAre(1, 0));
  EXPECT_EQ(tagDetectorValue, 0);
}

TEST_F(TagDetection, AFailureDoesNotMoveTheTimeLastSeen) {
  update(true);
  const auto seen = lastSeen;
  fake_clock::advance(milliseconds(100));
  update(false);
  EXPECT_EQ(lastSeen, seen);
}

TEST_F(TagDetection, NothingSeenYetIsAbsent) {
  update(false);
  EXPECT_TRUE(sent().empty());
}

TEST_F(TagDetection, AForeignRelayValueIsCorrected) {
  tagDetectorValue = 5;
  update(true);
  EXPECT_THAT(sent(), ElementsAre(1));
}

TEST_F(TagDetection, TheLongestTimeoutDoesNotOverflow) {
  tagDetectorTagPresentTimeout = 2147483647;
  update(true);
  fake_clock::advance(std::chrono::hours(24));
  update(false);
  EXPECT_THAT(sent(), ElementsAre(1));
}

TEST_F(TagDetection, AChangeIsLogged) {
  update(true);
  fake_clock::advance(milliseconds(500));
  update(false);
  EXPECT_THAT(host().debug_texts(), ElementsAre("Setting tag_detector_value to 1", "Setting tag_detector_value to 0"));
  EXPECT_EQ(host().debug_lines()[0].function, "update_tag_detection");
  EXPECT_EQ(host().debug_lines()[0].source, "uhf/src/source/uhf");
}
