// The door is to open, or to close, or is counted, while there is no memory for it.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <new>

#include "door/run/figures.h"
#include "door/services/door_service.h"
#include "door/tests/failing_memory.h"
#include "door/tests/service_fixture.h"

namespace achost::test {
namespace {

using std::chrono::steady_clock;

class DoorMemory : public Services {
 protected:
  DoorMemory() {
    set("door_open_time", 600000);
    watch({{"gpio_set_value", {"value"}}, {"all_told", {}}});
  }

  // What the relay was switched to at last, of all that was sent until now.
  int relay() {
    refhost::send("all_told", {});
    for (std::size_t count = 1;; ++count) {
      const auto seen = this->seen(count);
      if (seen.size() < count) {
        ADD_FAILURE() << "what was sent did not come";
        return -1;
      }
      if (std::count(seen.begin(), seen.end(), "all_told") == rounds_) {
        ++rounds_;
        const auto last = std::find_if(seen.rbegin(), seen.rend(), [](const auto& text) { return text != "all_told"; });
        return last != seen.rend() && *last == "gpio_set_value value=1" ? 1 : 0;
      }
    }
  }

  // For its usual time.
  void open() {
    refhost::send("actuator_open_door", {{"id", kTheDoor}, {"reason", kByCommand}});
    const auto end = steady_clock::now() + kPatience;
    while (relay() == 0 && steady_clock::now() < end) {
    }
  }

  // Calls it with the allocation of this number failing. Whether it had fewer.
  static bool survives(std::int64_t number, const std::function<void()>& call) {
    fail_allocation(number);
    try {
      call();
    } catch (const std::bad_alloc&) {  // whoever asked is told
    }
    return stop_failing() < number;
  }

  std::ptrdiff_t rounds_ = 1;
  Bookkeeping books_{.note = [](const Entry&) {}};
  DoorService door_{books_};
};

TEST_F(DoorMemory, ADoorThatCouldNotOpenIsShutAndOpensAtTheNextRequest) {
  for (std::int64_t number = 1;; ++number) {
    const bool is_last = survives(number, [this] { door_.stay_open(true); });
    EXPECT_EQ(door_.is_open(), relay() == 1) << "allocation " << number;
    door_.stay_open(true);
    EXPECT_TRUE(door_.is_open() && relay() == 1) << "allocation " << number;
    door_.stay_open(false);
    door_.close_when_due(steady_clock::time_point::max());
    ASSERT_FALSE(door_.is_open() || relay() == 1);
    if (is_last) {
      EXPECT_GT(number, 1) << "opening needs memory";
      break;
    }
  }
}

TEST_F(DoorMemory, ADoorThatCouldNotCloseIsOpenUntilItIsTriedAgain) {
  for (std::int64_t number = 1;; ++number) {
    open();
    const bool is_last = survives(number, [this] { door_.close_when_due(steady_clock::time_point::max()); });
    EXPECT_EQ(door_.is_open(), relay() == 1) << "allocation " << number;
    door_.close_when_due(steady_clock::time_point::max());
    ASSERT_FALSE(door_.is_open() || relay() == 1) << "allocation " << number;
    if (is_last) {
      EXPECT_GT(number, 1) << "closing needs memory";
      break;
    }
  }
}

// The sender of a decision goes on to tell the door.
TEST(FiguresMemory, WhatFindsNoneIsNotCountedAndWhoSendsGoesOn) {
  Figures figures([] { return 18; });
  ac::Message message("identifier_decision");
  message.add_int64("value", 33);
  message.add_string("outcome", "too_soon_after_entry");
  fail_allocation(1);
  EXPECT_NO_THROW(figures.see(message));
  EXPECT_GT(stop_failing(), 0) << "counting needs memory";
  EXPECT_EQ(figures.json().at("identifications").at("too_soon_after_entry"), 0);
  figures.see(message);
  EXPECT_EQ(figures.json().at("identifications").at("too_soon_after_entry"), 1);
}

}  // namespace
}  // namespace achost::test
