#include "door/control/control_commands.h"

#include "door/base/failure.h"
#include "door/base/maker.h"
#include "door/control/control_events.h"
#include "door/control/control_status.h"
#include "door/control/door_commands.h"
#include "door/control/enrollment_request.h"
#include "door/control/gateway_commands.h"
#include "door/control/gpio_commands.h"
#include "door/control/power_commands.h"
#include "door/control/reader_commands.h"
#include "door/control/restore_command.h"
#include "door/journal/changes.h"
#include "refhost/send.h"
#include "uhfsim/command.h"
#include "uhfsim/text.h"

namespace achost {
namespace {

using Type = ControlField::Type;

// Of the interface as docs/control.md has it: another number where a client that knows this one could not go on.
constexpr std::int64_t kInterface = 1;

// Who asks, and what he may.
Json greet(const Json& request, const ControlStream& stream, const std::string& version,
           const std::vector<std::string>& commands) {
  const auto wanted = request.value("interface", kInterface);
  if (wanted != kInterface) {
    throw RequestError("this host speaks interface " + std::to_string(kInterface) + ", not " + std::to_string(wanted));
  }
  Json allowed = Json::array();
  for (const auto& command : commands) {
    if (role_for(command) <= stream.role()) {
      allowed.push_back(command);
    }
  }
  Json answer = {{"interface", kInterface}, {"version", version}, {"role", name_of(stream.role())}};
  if (const auto* const maker = MakerScope::current()) {
    answer["uid"] = maker->uid;
    answer["user"] = maker->name;
  }
  answer["commands"] = std::move(allowed);
  return answer;
}

ControlCommand hello_command(const std::string& version, const std::vector<ControlCommand>& others) {
  std::vector<std::string> names = {"hello"};
  for (const auto& other : others) {
    names.push_back(other.name);
  }
  return {"hello", {{"interface", Type::integer, false}}, [version, names](const Json& request, ControlStream& stream) {
            return greet(request, stream, version, names);
          }};
}

// The button is pressed, and let go.
Json press_exit_button(const std::function<void(const Entry&)>& note) {
  note(command_given("exit"));
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
  const auto of_the_reader = reader_commands(host.line, host.note);
  commands.insert(commands.end(), of_the_reader.begin(), of_the_reader.end());
  const auto of_the_radio =
      power_commands({.line = host.line, .settings = host.settings, .sightings = host.why.live, .note = host.note});
  commands.insert(commands.end(), of_the_radio.begin(), of_the_radio.end());
  const auto of_the_lines = gpio_commands(host.gpio, host.settings, host.note);
  commands.insert(commands.end(), of_the_lines.begin(), of_the_lines.end());
  const auto of_the_door = door_commands({.supervision = host.door, .stores = host.stores, .note = host.note});
  commands.insert(commands.end(), of_the_door.begin(), of_the_door.end());
  commands.insert(
      commands.end(),
      {
          {"rex", {}, [host](const Json&, ControlStream&) { return press_exit_button(host.note); }},
          {"enroll",
           {{"user", Type::integer},
            {"registration", Type::text, false},
            {"save", Type::flag, false},
            {"wait", Type::flag, false}},
           [host](const Json& request, ControlStream& stream) {
             return enroll(request, host.plugin(), host.enroller, host.stores.users(), stream, host.note);
           }},
          {"field", {{"line"}}, [host](const Json& request, ControlStream&) { return change_field(host, request); }},
          {"field_show", {}, [host](const Json&, ControlStream&) { return show_field(host); }},
          gateway_alarm_command(host.alarms),
          restore_command(host.state, host.start_anew, host.note),
          why_command(host.why),
          {"why_now", {}, [host](const Json&, ControlStream&) { return explain_now(host.why); }},
          {"status", {}, [host](const Json&, ControlStream&) { return status_of(host); }},
          {"figures", {}, [host](const Json&, ControlStream&) { return figures_of(host); }},
          events_command(host.events),
      });
  commands.push_back(hello_command(host.version, commands));
  return ControlTable(std::move(commands));
}

}  // namespace achost
