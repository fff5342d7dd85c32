#include "door/control/control_commands.h"

#include <tuple>

#include "door/base/assignment.h"
#include "door/base/failure.h"
#include "door/control/control_events.h"
#include "door/control/control_status.h"
#include "door/control/enrollment_request.h"
#include "door/control/reader_commands.h"
#include "refhost/send.h"
#include "uhfsim/command.h"
#include "uhfsim/text.h"

namespace achost {
namespace {

using Type = ControlField::Type;

// With what is in force in place of the value, and why, where they differ.
Json setting_json(const ControlledHost& host, const refhost::Setting& setting) {
  const auto& [section, key] = std::tie(setting.section, setting.key);
  Json result = {{"section", section},
                 {"key", key},
                 {"value", host.settings.get(section, key).value()},
                 {"overridden", host.settings.is_overridden(section, key)}};
  if (const auto awaited = host.changes.awaited(section, key); awaited.has_value()) {
    result["in_force"] = awaited->in_force;
    result["reason"] = awaited->reason;
  }
  return result;
}

Json list_settings(const ControlledHost& host) {
  Json list = Json::array();
  for (const auto& setting : host.settings.schema().settings()) {
    list.push_back(setting_json(host, setting));
  }
  return {{"settings", list}};
}

const refhost::Setting& setting_of(const refhost::SettingsStore& store, const Json& request) {
  return store.schema().at(request["section"].get<std::string>(), request["key"].get<std::string>());
}

// Throws Failure when any of them does not come into force.
void change_settings(SettingsChanges& changes, const std::vector<refhost::SettingValue>& wanted) {
  std::string told;
  for (const auto& awaited : changes.change(wanted)) {
    told += (told.empty() ? "" : "; ") + text_of(awaited);
  }
  if (!told.empty()) {
    throw Failure(kNotInForce, told + "; the host tries again until it is");
  }
}

// The answer has what the store holds once the plug-in has heard of the change: it may have written a bound back.
Json set_setting(const ControlledHost& host, const Json& request) {
  const auto& setting = setting_of(host.settings, request);
  change_settings(host.changes,
                  {{setting.section, setting.key, stored_form(setting, request["value"].get<std::string>())}});
  return setting_json(host, setting);
}

Json import_settings(const ControlledHost& host, const Json& request) {
  std::vector<Assignment> wanted;
  for (const auto& one : request["settings"]) {
    const auto text = one.get<std::string>();
    const auto equals = text.find('=');
    if (equals == std::string::npos) {
      throw RequestError("\"" + text + "\" is no setting: give SECTION.KEY=VALUE");
    }
    wanted.push_back(checked_assignment(text.substr(0, equals), text.substr(equals + 1)));
  }
  change_settings(host.changes, wanted);
  return {{"count", wanted.size()}};
}

Json list_lines(const GpioService& gpio) {
  Json lines = Json::array();
  int line = 0;
  for (const int level : gpio.levels()) {
    lines.push_back({{"line", line++}, {"level", level}});
  }
  return {{"lines", lines}};
}

Json set_line(const Json& request) {
  const auto line = request["line"].get<std::int64_t>();
  const auto value = request["value"].get<std::int64_t>();
  if (line < 0 || line >= GpioService::kLines) {
    throw RequestError("there is no GPIO line " + std::to_string(line) + ": there are lines 0 to " +
                       std::to_string(GpioService::kLines - 1));
  }
  if (value != 0 && value != 1) {
    throw RequestError("a GPIO line cannot be " + std::to_string(value) + ": it is 0 or 1");
  }
  refhost::send("gpio_set_value", {{"gpio", static_cast<int>(line)}, {"value", static_cast<int>(value)}});
  return {{"line", line}, {"value", value}};
}

// The button is pressed, and let go.
Json press_exit_button() {
  refhost::send("sec_box_rex_changed", {{"active", 0}});
  refhost::send("sec_box_rex_changed", {{"active", 1}});
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
  auto commands = reader_commands(host.line);
  commands.insert(
      commands.end(),
      {
          {"config_list", {}, [host](const Json&, ControlStream&) { return list_settings(host); }},
          {"config_get",
           {{"section"}, {"key"}},
           [host](const Json& request, ControlStream&) {
             return setting_json(host, setting_of(host.settings, request));
           }},
          {"config_set",
           {{"section"}, {"key"}, {"value"}},
           [host](const Json& request, ControlStream&) { return set_setting(host, request); }},
          {"config_import",
           {{"settings", Type::texts}},
           [host](const Json& request, ControlStream&) { return import_settings(host, request); }},
          {"gpio_list", {}, [host](const Json&, ControlStream&) { return list_lines(host.gpio); }},
          {"gpio_set",
           {{"line", Type::integer}, {"value", Type::integer}},
           [](const Json& request, ControlStream&) { return set_line(request); }},
          {"rex", {}, [](const Json&, ControlStream&) { return press_exit_button(); }},
          {"enroll",
           {{"user", Type::integer},
            {"registration", Type::text, false},
            {"save", Type::flag, false},
            {"wait", Type::flag, false}},
           [host](const Json& request, ControlStream& stream) {
             return enroll(request, host.plugin(), host.enroller, stream);
           }},
          {"field", {{"line"}}, [host](const Json& request, ControlStream&) { return change_field(host, request); }},
          {"field_show", {}, [host](const Json&, ControlStream&) { return show_field(host); }},
          {"why",
           {{"card", Type::text, false},
            {"epc", Type::text, false},
            {"from", Type::integer},
            {"to", Type::integer},
            {"at", Type::integer, false}},
           [host](const Json& request, ControlStream&) { return explain_card(request, host.why); }},
          {"why_now", {}, [host](const Json&, ControlStream&) { return explain_now(host.why); }},
          {"status", {}, [host](const Json&, ControlStream&) { return status_of(host); }},
          {"events",
           {{"types", Type::text, false}},
           [](const Json& request, ControlStream& stream) { return follow_events(request, stream); }},
      });
  return ControlTable(std::move(commands));
}

}  // namespace achost
