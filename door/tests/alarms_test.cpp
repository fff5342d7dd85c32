#include "door/services/alarms.h"

#include <gtest/gtest.h>

#include <thread>

#include "door/tests/service_fixture.h"

namespace achost::test {
namespace {

class AlarmsTest : public Services {
 protected:
  AlarmsTest() { watch({{"alarm", {"name", "text", "standing"}}}); }

  // "name: text" of each that stands.
  std::vector<std::string> standing() const {
    std::vector<std::string> result;
    for (const auto& [name, text] : alarms_.standing()) {
      result.push_back(name + ": " + text);
    }
    return result;
  }

  Alarms alarms_;
};

TEST_F(AlarmsTest, AnAlarmStandsUntilItIsOverAndBothAreAnnounced) {
  alarms_.raise("disk", "it is full");
  EXPECT_EQ(standing(), std::vector<std::string>{"disk: it is full"});
  alarms_.clear("disk");
  EXPECT_EQ(standing(), std::vector<std::string>{});
  EXPECT_EQ(seen(2), (std::vector<std::string>{"alarm name=disk text=it is full standing=1",
                                               "alarm name=disk text=it is full standing=0"}));
}

TEST_F(AlarmsTest, TheSameAgainIsNotAnnouncedButAnotherTextIs) {
  alarms_.clear("disk");
  alarms_.raise("disk", "it is full");
  alarms_.raise("disk", "it is full");
  alarms_.raise("disk", "it does not answer");
  alarms_.clear("disk");
  alarms_.clear("disk");
  alarms_.raise("end", "of the test");
  EXPECT_EQ(seen(4),
            (std::vector<std::string>{
                "alarm name=disk text=it is full standing=1", "alarm name=disk text=it does not answer standing=1",
                "alarm name=disk text=it does not answer standing=0", "alarm name=end text=of the test standing=1"}));
}

TEST_F(AlarmsTest, ThreadsMayRaiseAndClearAtTheSameTime) {
  const auto work = [this](const std::string& name) {
    for (int i = 0; i < 200; ++i) {
      alarms_.raise(name, "text");
      alarms_.clear(name);
    }
  };
  std::thread one(work, "one");
  std::thread two(work, "two");
  one.join();
  two.join();
  EXPECT_EQ(seen(800).size(), 800U);
  EXPECT_EQ(standing(), std::vector<std::string>{});
}

}  // namespace
}  // namespace achost::test
