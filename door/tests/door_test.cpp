#include "door/services/door_service.h"

#include <gmock/gmock.h>

#include <chrono>
#include <new>

#include "ac/config_util.h"
#include "door/tests/service_fixture.h"
#include "refhost/bus_view.h"
#include "refhost/tests/captured_log.h"

namespace achost::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

using Texts = std::vector<std::string>;

class Door : public Services {
 protected:
  Door() {
    set("door_open_time", 100);
    watch({{"gpio_set_value", {"gpio", "value"}}, {"door_state", {"id", "open", "reason"}}});
  }
  ~Door() override { ac::config_util::relay_enabled(2, true); }

  static void request(int reason = kIdentification, int door = 1) {
    refhost::send("actuator_open_door", {{"id", door}, {"reason", reason}});
  }

  Recorder<std::string> order;  // what was noted and what was sent, in their order
  Bookkeeping books{.note = [this](const Entry& entry) {
    order.add(std::string(name_of(entry.kind)) + " " + std::get<std::string>(entry.fields.at(1).second));
  }};
  std::optional<DoorService> door{std::in_place, books};
};

TEST_F(Door, OpensAndClosesAfterItsTime) {
  const auto before = steady_clock::now();
  request(kExitRequest);
  EXPECT_EQ(seen(4), Texts({"gpio_set_value gpio=18 value=1", "door_state id=1 open=1 reason=1",
                            "gpio_set_value gpio=18 value=0", "door_state id=1 open=0 reason=1"}));
  EXPECT_GE(steady_clock::now() - before, milliseconds(100));
}

TEST_F(Door, AnotherRequestProlongsWithoutOpeningAgain) {
  set("door_open_time", 600000);
  request();
  seen(2);
  set("door_open_time", 100);
  request(kExitRequest);
  EXPECT_EQ(seen(4), Texts({"gpio_set_value gpio=18 value=1", "door_state id=1 open=1 reason=0",
                            "gpio_set_value gpio=18 value=0", "door_state id=1 open=0 reason=0"}))
      << "the time counts from the latest request";
}

TEST_F(Door, ClosesTheRelayThatItOpened) {
  request();
  seen(2);
  set("door_relay", 5);
  EXPECT_EQ(seen(4).at(2), "gpio_set_value gpio=18 value=0");
  request();
  EXPECT_EQ(seen(5).at(4), "gpio_set_value gpio=21 value=1");
}

TEST_F(Door, TestOfItsRelayCutsNoOpeningShort) {
  set("door_open_time", 3000);
  request(kExitRequest);
  seen(2);
  const auto opened = steady_clock::now();
  request(kRelayTest);
  EXPECT_EQ(seen(4).at(2), "gpio_set_value gpio=18 value=0");
  EXPECT_GE(steady_clock::now() - opened, milliseconds(2500));
}

TEST_F(Door, ARelayThatIsTakenIsNotTouched) {
  ac::config_util::relay_enabled(2, false);
  refhost::test::capture_log();
  request();
  request(kIdentification, 2);  // its line in the log tells that the first has been handled
  door.reset();                 // delivers what waits
  const std::string log = refhost::test::captured_log();
  EXPECT_NE(log.find("relay 2 shows the tag detector"), std::string::npos) << log;
  EXPECT_EQ(order.wait_for(1), Texts({"refusal relay 2 shows the tag detector"}));
}

TEST_F(Door, ARequestThatIsNoneIsLogged) {
  refhost::test::capture_log();
  request(kIdentification, 2);
  refhost::send("actuator_open_door", {{"id", 1}});
  refhost::send("actuator_open_door", {{"reason", 1}});
  request();
  EXPECT_EQ(seen(1).front(), "gpio_set_value gpio=18 value=1") << "nothing came of the others";
  const std::string log = refhost::test::captured_log();
  EXPECT_NE(log.find("there is no door 2: there is door 1"), std::string::npos) << log;
  EXPECT_NE(log.find("without an int \"id\" or \"reason\""), std::string::npos) << log;
}

TEST_F(Door, AnOpeningIsNotedBeforeTheRelayMoves) {
  const refhost::BusTap tap([this](const ac::Message& message) {
    if (message.type() == "gpio_set_value") {
      order.add(text_of(message, {"value"}));
    }
  });
  request();
  EXPECT_EQ(order.wait_for(3), Texts({"opening identification", "gpio_set_value value=1", "gpio_set_value value=0"}));
  request(kExitRequest);
  EXPECT_EQ(order.wait_for(5).at(3), "opening exit request");
}

TEST_F(Door, OpensAlsoWhenThereIsNoMemoryToNoteIt) {
  books.note = [](const Entry&) { throw std::bad_alloc(); };
  refhost::test::capture_log();
  request(kExitRequest);
  EXPECT_EQ(seen(1).at(0), "gpio_set_value gpio=18 value=1");
  EXPECT_THAT(refhost::test::captured_log(), testing::HasSubstr("no memory to note that it opens"));
}

TEST_F(Door, ClosesWhenTheServiceEnds) {
  set("door_open_time", 600000);
  request();
  seen(2);
  door.reset();
  EXPECT_EQ(seen(4).at(2), "gpio_set_value gpio=18 value=0");
}

}  // namespace
}  // namespace achost::test
