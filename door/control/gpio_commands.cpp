#include "door/control/gpio_commands.h"

#include <stdexcept>
#include <string>
#include <thread>

#include "ac/config_util.h"
#include "door/journal/changes.h"
#include "door/services/door_service.h"
#include "refhost/relays.h"
#include "refhost/send.h"

namespace achost {
namespace {

using Note = std::function<void(const Entry&)>;
using Type = ControlField::Type;

Json list_lines(const GpioService& gpio) {
  Json lines = Json::array();
  int line = 0;
  for (const int level : gpio.levels()) {
    lines.push_back({{"line", line++}, {"level", level}});
  }
  Json answer = json_of(gpio.lines().report());
  answer["lines"] = std::move(lines);
  return answer;
}

void send_level(int line, int value) { refhost::send("gpio_set_value", {{"gpio", line}, {"value", value}}); }

Json set_line(const Json& request, const GpioService& gpio, const Note& note) {
  const auto line = request["line"].get<std::int64_t>();
  const auto value = request["value"].get<std::int64_t>();
  if (line < 0 || line >= GpioService::kLines) {
    throw RequestError("there is no GPIO line " + std::to_string(line) + ": there are lines 0 to " +
                       std::to_string(GpioService::kLines - 1));
  }
  if (value != 0 && value != 1) {
    throw RequestError("a GPIO line cannot be " + std::to_string(value) + ": it is 0 or 1");
  }
  if (gpio.lines().is_real_input(static_cast<int>(line))) {
    throw RequestError("line " + std::to_string(line) + " is a real input: nothing but its wire moves it");
  }
  note(command_given("line", {{"line", line}, {"value", value}}));
  send_level(static_cast<int>(line), static_cast<int>(value));
  return {{"line", line}, {"value", value}};
}

// The door opens by itself for a test, so that it is in the journal and nobody's opening is cut short.
void try_door(int level) {
  if (level != 0) {
    throw std::runtime_error("the door is open: try its relay when it is shut");
  }
  refhost::send("actuator_open_door", {{"id", 1}, {"reason", static_cast<int>(kRelayTest)}});
}

void try_other(int relay, int line, int level) {
  if (!refhost::relay_is_enabled(relay)) {
    throw std::runtime_error("relay " + std::to_string(relay) +
                             " shows the tag detector: set uhf.tag_detector_enabled to 0 first");
  }
  send_level(line, 1 - level);
  std::this_thread::sleep_for(kRelayTestTime);
  send_level(line, level);
}

Json try_relay(const Json& request, const GpioService& gpio, const refhost::SettingsStore& settings, const Note& note) {
  const auto wanted = request["relay"].get<std::int64_t>();
  if (wanted < refhost::kFirstRelay || wanted > refhost::kLastRelay) {
    throw RequestError("there is no relay " + std::to_string(wanted) + ": there are relays " +
                       std::to_string(refhost::kFirstRelay) + " to " + std::to_string(refhost::kLastRelay));
  }
  const int relay = static_cast<int>(wanted);
  const int line = ac::config_util::relay_gpio(relay);
  if (!gpio.lines().is_real(line)) {
    throw std::runtime_error("relay " + std::to_string(relay) +
                             " is virtual, nothing would move: host.gpio_chip and host.relay_" + std::to_string(relay) +
                             " give it a line");
  }
  note(command_given("relay_test", {{"relay", wanted}}));
  const bool is_door = settings.get_int("host", "door_relay") == relay;
  const int level = gpio.lines().level(line);
  is_door ? try_door(level) : try_other(relay, line, level);
  return {{"relay", relay}, {"door", is_door}};
}

}  // namespace

Json json_of(const gpio::Report& report) {
  Json wired = Json::array();
  for (const auto& line : report.lines) {
    wired.push_back({{"offset", line.offset},
                     {"name", line.name},
                     {"direction", line.is_output ? "output" : "input"},
                     {"level", line.level.has_value() ? Json(*line.level) : Json(nullptr)},
                     {"consumer", line.consumer},
                     {"use", line.use}});
  }
  return {{"chip", report.chip}, {"wired", std::move(wired)}};
}

std::vector<ControlCommand> gpio_commands(const GpioService& gpio, const refhost::SettingsStore& settings,
                                          const Note& note) {
  return {{"gpio_list", {}, [&gpio](const Json&, ControlStream&) { return list_lines(gpio); }},
          {"gpio_set",
           {{"line", Type::integer}, {"value", Type::integer}},
           [&gpio, note](const Json& request, ControlStream&) { return set_line(request, gpio, note); }},
          {"gpio_test", {{"relay", Type::integer}}, [&gpio, &settings, note](const Json& request, ControlStream&) {
             return try_relay(request, gpio, settings, note);
           }}};
}

}  // namespace achost
