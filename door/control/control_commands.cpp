#include "door/control/control_commands.h"

#include "door/base/failure.h"
#include "door/control/control_events.h"
#include "door/control/control_status.h"
#include "door/control/door_commands.h"
#include "door/control/enrollment_request.h"
#include "door/control/gpio_commands.h"
#include "door/control/reader_commands.h"
#include "door/control/restore_command.h"
#include "refhost/send.h"
#include "uhfsim/command.h"
#include "uhfsim/text.h"

namespace achost {
namespace {

using Type = ControlField::Type;

// The button is pressed, and let go.
Json press_exit_button() {
  for (const int active : {0, 1}) {
    refhost::send("sec_box_rex_changed", {{"active", active}, {"at", gpio::monotonic_now()}});
  }
  return Json::object();
}

uhfsim::SimulatedReader& simulated(const ControlledHost& host) {
  if (host.simulated == nullptr) {
    throw std::runtime_error("the reader at " + host.reader + " is a real one: its field is what stands before it");
  }
  return *host.simulated;
}

Json change_field(const ControlledHost& host, const Json& request) {
  auto& simulation = simulated(host);
  try {
    const auto line = request["line"].get<std::string>();
    const auto words = uhfsim::words_of(line);
    if (words.empty()) {
      throw uhfsim::CommandError("nothing to do; expected add, remove, clear or fault");
    }
    uhfsim::apply(uhfsim::parse_command(words), simulation.field(), simulation.faults());
  } catch (const uhfsim::CommandError& failure) {
    throw RequestError(failure.what());
  }
  return Json::object();
}

Json show_field(const ControlledHost& host) {
  Json tags = Json::array();
  for (const auto& tag : simulated(host).field().snapshot()) {
    tags.push_back(Json{{"epc", uhfsim::hex_of(tag.epc)}, {"rssi", tag.rssi}, {"probability", tag.probability}});
  }
  return {{"tags", tags}};
}

}  // namespace

ControlTable control_table(const ControlledHost& host) {
  auto commands = store_commands(host.stores);
  const auto of_the_reader = reader_commands(host.line);
  commands.insert(commands.end(), of_the_reader.begin(), of_the_reader.end());
  const auto of_the_lines = gpio_commands(host.gpio, host.settings);
  commands.insert(commands.end(), of_the_lines.begin(), of_the_lines.end());
  const auto of_the_door = door_commands({.supervision = host.door, .stores = host.stores, .note = host.note});
  commands.insert(commands.end(), of_the_door.begin(), of_the_door.end());
  commands.insert(
      commands.end(),
      {
          {"rex", {}, [](const Json&, ControlStream&) { return press_exit_button(); }},
          {"enroll",
           {{"user", Type::integer},
            {"registration", Type::text, false},
            {"save", Type::flag, false},
            {"wait", Type::flag, false}},
           [host](const Json& request, ControlStream& stream) {
             return enroll(request, host.plugin(), host.enroller, host.stores.users(), stream);
           }},
          {"field", {{"line"}}, [host](const Json& request, ControlStream&) { return change_field(host, request); }},
          {"field_show", {}, [host](const Json&, ControlStream&) { return show_field(host); }},
          restore_command(host.state, host.start_anew),
          why_command(host.why),
          {"why_now", {}, [host](const Json&, ControlStream&) { return explain_now(host.why); }},
          {"status", {}, [host](const Json&, ControlStream&) { return status_of(host); }},
          {"events",
           {{"types", Type::text, false}},
           [](const Json& request, ControlStream& stream) { return follow_events(request, stream); }},
      });
  return ControlTable(std::move(commands));
}

}  // namespace achost
