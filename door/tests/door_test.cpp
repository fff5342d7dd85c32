#include "door/services/door_service.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <new>
#include <thread>

#include "ac/config_util.h"
#include "door/tests/service_fixture.h"
#include "refhost/bus_view.h"
#include "refhost/delivery.h"
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

  // The same, and wait until the service has handled it.
  static void have_handled(int reason = kIdentification) {
    auto message = std::make_unique<ac::Message>("actuator_open_door");
    message->add_int("id", 1);
    message->add_int("reason", reason);
    refhost::test::Event is_handled;
    const auto delivery = refhost::Delivery::send(std::move(message), [&] { is_handled.set(); });
    ASSERT_TRUE(is_handled.wait());
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

TEST_F(Door, ARequestInTimeProlongsWithoutTheRelayFalling) {
  set("door_open_time", 60000);
  const auto begin = steady_clock::now();
  request();
  seen(2);
  set("door_open_time", 600000);
  have_handled(kExitRequest);
  door->close_when_due(begin + std::chrono::minutes(5));
  EXPECT_TRUE(door->is_open());
  door->close_when_due(steady_clock::now() + std::chrono::minutes(11));
  EXPECT_FALSE(door->is_open());
  EXPECT_EQ(seen(4), Texts({"gpio_set_value gpio=18 value=1", "door_state id=1 open=1 reason=0",
                            "gpio_set_value gpio=18 value=0", "door_state id=1 open=0 reason=0"}));
}

TEST_F(Door, ARequestThatComesWhileItClosesOpensItForItsWholeTime) {
  set("door_open_time", 60000);
  refhost::test::Event has_asked;
  int falls = 0;
  const refhost::Subscriber somebody("somebody", {on("gpio_set_value", [&](ac::Message* message) {
                                       if (text_of(*message, {"value"}).ends_with("=0") && ++falls == 1) {
                                         have_handled(kExitRequest);
                                         has_asked.set();
                                       }
                                     })});
  request();
  seen(2);
  const auto before = steady_clock::now();
  door->close_when_due(before + std::chrono::hours(1));
  ASSERT_TRUE(has_asked.wait());
  EXPECT_EQ(seen(6), Texts({"gpio_set_value gpio=18 value=1", "door_state id=1 open=1 reason=0",
                            "gpio_set_value gpio=18 value=0", "door_state id=1 open=0 reason=0",
                            "gpio_set_value gpio=18 value=1", "door_state id=1 open=1 reason=1"}));
  door->close_when_due(before + std::chrono::seconds(59));
  EXPECT_TRUE(door->is_open()) << "its own time counts";
}

// It is announced again an interval and a poll or two after the time before.
TEST_F(Door, ACardThatStaysDoesNotLetTheRelayFallBetweenItsAnnouncements) {
  for (const auto& [time, shut_by] : {std::pair(3000, 3250), {3249, 3250}, {2999, 2999}, {3300, 3300}}) {
    set("door_open_time", time);
    have_handled();
    const auto now = steady_clock::now();
    door->close_when_due(now + milliseconds(shut_by - 500));
    EXPECT_TRUE(door->is_open()) << time;
    door->close_when_due(now + milliseconds(shut_by));
    EXPECT_FALSE(door->is_open()) << time;
  }
  set("door_open_time", 60000);
  settings().override_for_run("uhf", "read_interval", "60000");
  have_handled(kExitRequest);
  door->close_when_due(steady_clock::now() + milliseconds(60000));
  EXPECT_FALSE(door->is_open()) << "nobody announces the exit button again";
  have_handled();
  door->close_when_due(steady_clock::now() + milliseconds(60000));
  EXPECT_TRUE(door->is_open());
}

// Whatever requests and closings do at the same time.
TEST_F(Door, OpeningsAndClosingsAlternateAndTheDoorIsShutInTheEnd) {
  constexpr int kFalls = 50;
  std::atomic<int> falls = 0;
  std::vector<std::string> moves;
  std::mutex mutex;  // guards moves
  const refhost::BusTap tap([&](const ac::Message& message) {
    const std::lock_guard lock(mutex);
    if (message.type() == "gpio_set_value") {
      moves.push_back(text_of(message, {"value"}));
      falls += moves.back().ends_with("=0") ? 1 : 0;
    }
  });
  std::atomic<bool> is_over = false;
  const auto hurry = [&] {
    while (!is_over) {
      door->close_when_due(steady_clock::now() + std::chrono::hours(1));
    }
  };
  std::thread one(hurry);
  std::thread other(hurry);
  for (const auto until = steady_clock::now() + kPatience; falls < kFalls && steady_clock::now() < until;) {
    request();
    have_handled(kExitRequest);
  }
  is_over = true;
  one.join();
  other.join();
  door.reset();
  const std::lock_guard lock(mutex);
  EXPECT_GE(falls, kFalls);
  ASSERT_EQ(moves.size() % 2, 0U);
  for (std::size_t i = 0; i < moves.size(); ++i) {
    EXPECT_EQ(moves[i], i % 2 == 0 ? "gpio_set_value value=1" : "gpio_set_value value=0") << i;
  }
}

TEST_F(Door, StaysOpenUntilItIsNotToAnyLonger) {
  door->stay_open(true);
  EXPECT_EQ(seen(2), Texts({"gpio_set_value gpio=18 value=1", "door_state id=1 open=1 reason=4"}));
  have_handled();
  door->close_when_due(steady_clock::now() + std::chrono::hours(24));
  door->close_after_use(steady_clock::now());
  EXPECT_TRUE(door->is_open());
  door->stay_open(true);
  door->stay_open(false);
  EXPECT_EQ(seen(4), Texts({"gpio_set_value gpio=18 value=1", "door_state id=1 open=1 reason=4",
                            "gpio_set_value gpio=18 value=0", "door_state id=1 open=0 reason=4"}));
  EXPECT_EQ(order.wait_for(1), Texts({"opening unlocked"}));
}

TEST_F(Door, WhoeverHasAskedWhileItStaysOpenHasHisWholeTime) {
  set("door_open_time", 600000);
  door->stay_open(true);
  have_handled(kExitRequest);
  door->stay_open(false);
  door->close_when_due();
  EXPECT_TRUE(door->is_open());
  door->close_when_due(steady_clock::now() + std::chrono::minutes(11));
  EXPECT_FALSE(door->is_open());
}

TEST_F(Door, ARelayThatFallsWhileItIsToStayOpenIsSwitchedOnAgain) {
  door->stay_open(true);
  seen(2);
  door->relay_fell(17);
  door->relay_fell(18);
  EXPECT_EQ(seen(3).at(2), "gpio_set_value gpio=18 value=1");
  door->stay_open(false);
  seen(5);
  door->relay_fell(18);
  request();
  EXPECT_EQ(seen(7).at(6), "door_state id=1 open=1 reason=0") << "and nothing came between";
  door->relay_fell(18);
  door->close_when_due(steady_clock::now() + std::chrono::hours(1));
  EXPECT_EQ(seen(8).at(7), "gpio_set_value gpio=18 value=0") << "an opening that is not to stay is left alone";
}

TEST_F(Door, ClosesAfterItsUseUnlessSomebodyHasAskedSince) {
  set("door_open_time", 600000);
  request();
  seen(2);
  const auto opened = steady_clock::now();
  have_handled(kExitRequest);
  door->close_after_use(opened);
  EXPECT_TRUE(door->is_open());
  door->close_after_use(steady_clock::now());
  EXPECT_EQ(seen(4).at(2), "gpio_set_value gpio=18 value=0");
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

TEST_F(Door, ThatIsToStayOpenOpensOnceItsRelayIsItsOwn) {
  ac::config_util::relay_enabled(2, false);
  door->stay_open(true);
  door->stay_open_if_possible();
  EXPECT_FALSE(door->is_open());
  ac::config_util::relay_enabled(2, true);
  door->stay_open_if_possible();
  door->stay_open_if_possible();
  EXPECT_TRUE(door->is_open());
  EXPECT_EQ(order.wait_for(2), Texts({"refusal relay 2 shows the tag detector", "opening unlocked"}));
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
