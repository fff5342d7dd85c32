#include "door/control/door_commands.h"

#include <chrono>
#include <string>

#include "door/base/failure.h"
#include "door/journal/changes.h"
#include "refhost/send.h"

namespace achost {
namespace {

using Type = ControlField::Type;
using std::chrono::seconds;

constexpr std::int64_t kLongestMode = 366LL * 24 * 60 * 60;  // s

Json open_door(const ControlledDoor& door) {
  door.note(command_given("open"));
  refhost::send("actuator_open_door", {{"id", kTheDoor}, {"reason", static_cast<int>(kByCommand)}});
  return Json::object();
}

void begin_for(const ControlledDoor& door, const std::string& name, std::int64_t length) {
  const auto mode = door_mode_of(name);
  if (!mode.has_value()) {
    throw RequestError("the door cannot be \"" + name + "\" for a time: it can be normal, locked or unlocked");
  }
  if (length < 1 || length > kLongestMode) {
    throw RequestError("a mode cannot last " + std::to_string(length) + " s: it is 1 to " +
                       std::to_string(kLongestMode) + " s");
  }
  door.note(command_given(name, {{"seconds", length}}));
  door.supervision.begin_for(*mode, seconds(length));
}

// It is in force at once, whatever becomes of telling others that the setting has another value.
void store_mode(const ControlledDoor& door, const std::string& name) {
  const auto awaited = door.stores.change({{"host", "door_mode", name}});
  door.supervision.go_by_settings();
  if (!awaited.empty()) {
    throw Failure(kNotInForce, text_of(awaited.front()));
  }
}

Json set_mode(const ControlledDoor& door, const Json& request) {
  const auto name = request["mode"].get<std::string>();
  if (request.contains("seconds")) {
    begin_for(door, name, request["seconds"].get<std::int64_t>());
  } else {
    store_mode(door, name);
  }
  return json_of(door.supervision.report());
}

}  // namespace

Json json_of(const DoorSupervision::Report& report) {
  const auto& [in_force, left] = report.mode;
  const auto& [contact, is_case_open] = report.contacts;
  Json answer = {{"lock", report.is_lock_open ? "open" : "closed"},
                 {"mode", name_of(in_force.mode)},
                 {"by", name_of(in_force.by)}};
  if (left.has_value()) {
    answer["seconds_left"] = std::chrono::ceil<seconds>(*left).count();
  }
  answer["contact"] = contact.has_value() ? Json(name_of(*contact)) : Json(nullptr);
  answer["case"] = is_case_open.has_value() ? Json(*is_case_open ? "open" : "closed") : Json(nullptr);
  return answer;
}

std::vector<ControlCommand> door_commands(const ControlledDoor& door) {
  return {{"door", {}, [door](const Json&, ControlStream&) { return json_of(door.supervision.report()); }},
          {.name = "door_open",
           .fields = {},
           .run = [door](const Json&, ControlStream&) { return open_door(door); },
           .changes = true},
          {.name = "door_mode",
           .fields = {{"mode"}, {"seconds", Type::integer, false}},
           .run = [door](const Json& request, ControlStream&) { return set_mode(door, request); },
           .changes = true}};
}

}  // namespace achost
