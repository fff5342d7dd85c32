#include "door/control/gpio_commands.h"

#include <gmock/gmock.h>

#include "ac/config_util.h"
#include "door/cli/gpio_table.h"
#include "door/services/door_service.h"
#include "door/tests/real_lines.h"

namespace achost::test {
namespace {

using testing::HasSubstr;

// A connection that nobody uses.
class NoStream : public ControlStream {
 public:
  bool send(const Json&) override { return false; }
  bool send_lines(const std::string&) override { return false; }
  bool send_bytes(std::string_view) override { return false; }
  std::string receive_bytes() override { return ""; }
  bool is_over() override { return true; }
  int hand_over() override { return -1; }
};

class GpioCommands : public RealLines {
 protected:
  Json run(const Json& request) {
    const ControlTable table(gpio_commands(*gpio_, settings(), [](const Entry&) {}));
    NoStream stream;
    return table.check(request).run(request, stream);
  }
  std::string refusal(const Json& request) {
    return failure_of([&] { run(request); });
  }
};

TEST_F(GpioCommands, ListTheChipsLinesWithTheirUseAndLevel) {
  kernel.take("SPARE", "led");
  begin();
  put(kLock, 1);
  seen(1);
  EXPECT_EQ(gpio_table(run({{"command", "gpio_list"}})),
            "chip gpiochip0 (board)\n"
            "LINE  NAME   DIRECTION  LEVEL  CONSUMER              USE\n"
            "0     LOCK   output     1      achost relay_2        relay_2\n"
            "1     REX    input      1      achost exit_button    exit_button\n"
            "2     RST    output     0      achost reader_reset   reader_reset\n"
            "3     TRIG   input      0      achost trigger_input  trigger_input\n"
            "4     -      input      -      -                     -\n"
            "5     SPARE  input      -      led                   -\n");
}

TEST_F(GpioCommands, SetNoInputThatHasAWire) {
  begin();
  EXPECT_THAT(refusal({{"command", "gpio_set"}, {"line", 1}, {"value", 1}}),
              HasSubstr("line 1 is a real input: nothing but its wire moves it"));
  EXPECT_EQ(refusal({{"command", "gpio_set"}, {"line", 2}, {"value", 1}}), "nothing was thrown");
}

TEST_F(GpioCommands, TryARelayForASecond) {
  set_text("relay_3", "SPARE rest=1");
  begin();
  const auto begun = gpio::monotonic_now();
  EXPECT_EQ(run({{"command", "gpio_test"}, {"relay", 3}}), (Json{{"relay", 3}, {"door", false}}));
  EXPECT_GE(gpio::monotonic_now() - begun, 1000000000);
  EXPECT_EQ(without_times(2), std::vector({notice(19, 0), notice(19, 1)}));
}

TEST_F(GpioCommands, TryTheDoorsRelayByOpeningTheDoor) {
  Recorder<std::string> noted;
  const Bookkeeping books{.note = [&noted](const Entry& entry) {
    noted.add(std::string(name_of(entry.kind)) + " " + std::get<std::string>(entry.fields.at(1).second));
  }};
  begin();
  const DoorService door(books);
  EXPECT_EQ(run({{"command", "gpio_test"}, {"relay", 2}}), (Json{{"relay", 2}, {"door", true}}));
  EXPECT_EQ(noted.wait_for(1).front(), "opening test of the relay");
  EXPECT_EQ(without_times(1), std::vector({notice(kLock, 1)}));
  EXPECT_THAT(refusal({{"command", "gpio_test"}, {"relay", 2}}), HasSubstr("the door is open"));
  EXPECT_EQ(without_times(2).back(), notice(kLock, 0));
}

TEST_F(GpioCommands, TryNoRelayThatIsVirtualOrTheTagDetectors) {
  set_text("relay_1", "SPARE");
  begin();
  EXPECT_THAT(refusal({{"command", "gpio_test"}, {"relay", 4}}),
              HasSubstr("relay 4 is virtual, nothing would move: host.gpio_chip and host.relay_4 give it a line"));
  EXPECT_THAT(refusal({{"command", "gpio_test"}, {"relay", 9}}), HasSubstr("there are relays 1 to 8"));
  ac::config_util::relay_enabled(1, false);
  EXPECT_THAT(refusal({{"command", "gpio_test"}, {"relay", 1}}), HasSubstr("relay 1 shows the tag detector"));
  ac::config_util::relay_enabled(1, true);
}

TEST(EdgeLine, HasTimeEdgeAndLine) {
  EXPECT_EQ(edge_line({{"message", "gpio_notified"}, {"fields", {{"gpio", 18}, {"value", 1}, {"at", 1623045678901}}}}),
            "1623.045678901  rising   relay 2\n");
  EXPECT_EQ(edge_line({{"fields", {{"active", 0}, {"at", 5}}}}), "0.000000005  rising   exit button\n");
  EXPECT_EQ(edge_line({{"fields", {{"active", 1}, {"at", 5}}}}), "0.000000005  falling  exit button\n");
  EXPECT_EQ(edge_line({{"following", true}}), "");
}

}  // namespace
}  // namespace achost::test
