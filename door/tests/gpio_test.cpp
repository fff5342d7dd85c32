#include "door/services/gpio_service.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ac/post_office.h"
#include "refhost/subscriber.h"
#include "refhost/tests/captured_log.h"
#include "refhost/tests/support.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h
namespace {

class Gpio : public testing::Test {
 protected:
  using Notice = std::pair<int, int>;

  static std::optional<int> state_of(int line) {
    auto question = message("gpio_current_state");
    question->add_int("gpio", line);
    return answer_to(std::move(question));
  }

  static std::optional<int> answer_to(std::unique_ptr<ac::Message> question) {
    ac::MessageReply reply;
    question->set_reply(&reply);
    ac::PostOffice::send_message_sync(std::move(question));
    int value = -1;
    return reply.replied() && reply.get_int("value", &value) ? std::optional(value) : std::nullopt;
  }

  static void set(int line, int value) {
    auto order = message("gpio_set_value");
    order->add_int("gpio", line);
    order->add_int("value", value);
    ac::PostOffice::send_message(std::move(order));
  }

  Recorder<Notice> notices;
  const refhost::Subscriber watcher{"watcher", {on("gpio_notified", [this](ac::Message* m) {
                                      Notice notice(-1, -1);
                                      m->get_int("gpio", &notice.first);
                                      m->get_int("value", &notice.second);
                                      notices.add(notice);
                                    })}};
  const GpioService service;
};

TEST_F(Gpio, LinesAreLowAtTheStart) {
  EXPECT_EQ(state_of(0), 0);
  EXPECT_EQ(state_of(259), 0);
}

TEST_F(Gpio, SetLineKeepsItsValue) {
  set(5, 1);
  EXPECT_EQ(state_of(5), 1);
  EXPECT_EQ(state_of(4), 0);
  set(5, 0);
  EXPECT_EQ(state_of(5), 0);
}

TEST_F(Gpio, AnyValueButZeroIsHigh) {
  set(5, -3);
  EXPECT_EQ(state_of(5), 1);
}

TEST_F(Gpio, NotifiesOnAChangeOnly) {
  set(7, 1);
  set(7, 1);
  set(7, 9);
  set(7, 0);
  set(7, 0);
  set(8, 1);
  EXPECT_EQ(notices.wait_for(3), std::vector<Notice>({{7, 1}, {7, 0}, {8, 1}}));
}

// As the plug-in expects it: 0 is pressed.
TEST_F(Gpio, ExitButtonIsNoLineForThePlugInButARequest) {
  Recorder<int> requests;
  const refhost::Subscriber listener("listener", {on("sec_box_rex_changed", [&](ac::Message* m) {
                                       int active = -1;
                                       m->get_int("active", &active);
                                       requests.add(active);
                                     })});
  set(kExitButton, 1);
  set(kExitButton, 0);
  set(kDoorContact, 1);
  EXPECT_EQ(requests.wait_for(2), std::vector({0, 1}));
  EXPECT_EQ(notices.wait_for(1), std::vector<Notice>({{kDoorContact, 1}}));
}

TEST_F(Gpio, ChangesAreToldWithTheirTime) {
  Recorder<std::int64_t> times;
  const refhost::Subscriber listener("listener", {on("gpio_notified", [&](ac::Message* m) {
                                       std::int64_t at = 0;
                                       m->get_int64("at", &at);
                                       times.add(at);
                                     })});
  const auto before = gpio::monotonic_now();
  set(7, 1);
  const auto at = times.wait_for(1).at(0);
  EXPECT_GE(at, before);
  EXPECT_LE(at, gpio::monotonic_now());
}

TEST_F(Gpio, LineOutOfRangeIsLoggedAndNotAnswered) {
  capture_log();
  EXPECT_EQ(state_of(261), std::nullopt);
  EXPECT_EQ(state_of(-1), std::nullopt);
  set(261, 1);
  EXPECT_EQ(state_of(0), 0);
  const std::string log = captured_log();
  EXPECT_NE(log.find("\"gpio_current_state\" of line 261: there are lines 0 to 260"), std::string::npos) << log;
  EXPECT_NE(log.find("\"gpio_current_state\" of line -1"), std::string::npos) << log;
  EXPECT_NE(log.find("\"gpio_set_value\" of line 261"), std::string::npos) << log;
}

TEST_F(Gpio, MessageWithoutItsFieldsIsLoggedAndChangesNothing) {
  capture_log();
  EXPECT_EQ(answer_to(message("gpio_current_state")), std::nullopt);
  auto order = message("gpio_set_value");
  order->add_int("gpio", 3);
  ac::PostOffice::send_message(std::move(order));
  EXPECT_EQ(state_of(3), 0);
  const std::string log = captured_log();
  EXPECT_NE(log.find("\"gpio_current_state\" without an int \"gpio\""), std::string::npos) << log;
  EXPECT_NE(log.find("\"gpio_set_value\" without an int \"value\""), std::string::npos) << log;
}

}  // namespace
}  // namespace achost::test
