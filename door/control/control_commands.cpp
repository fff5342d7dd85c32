#include "door/control/control_commands.h"

#include "door/base/assignment.h"
#include "door/control/control_events.h"
#include "door/control/control_status.h"
#include "door/control/enrollment_request.h"
#include "refhost/bus_view.h"
#include "refhost/send.h"
#include "uhfsim/command.h"
#include "uhfsim/text.h"

namespace achost {
namespace {

using Type = ControlField::Type;

// How long the plug-in may take to apply a setting; the reader's answers are the slowest part of it.
constexpr std::chrono::seconds kLongestHandling{10};

Json setting_json(const refhost::SettingsStore& store, const refhost::Setting& setting) {
  return {{"section", setting.section},
          {"key", setting.key},
          {"value", store.get(setting.section, setting.key).value()},
          {"overridden", store.is_overridden(setting.section, setting.key)}};
}

Json list_settings(const refhost::SettingsStore& store) {
  Json list = Json::array();
  for (const auto& setting : store.schema().settings()) {
    list.push_back(setting_json(store, setting));
  }
  return {{"settings", list}};
}

const refhost::Setting& setting_of(const refhost::SettingsStore& store, const Json& request) {
  return store.schema().at(request["section"].get<std::string>(), request["key"].get<std::string>());
}

// Wait until every handler has heard of the changes. what: that is stored by then.
void await_plugin(const std::string& what) {
  if (!refhost::flush_bus(kLongestHandling)) {
    throw std::runtime_error(what + " stored, but the plug-in has not answered for " +
                             std::to_string(kLongestHandling.count()) + " s: see achost status");
  }
}

// The answer has what the store holds once the plug-in has heard of the change: it may have written a bound back.
Json set_setting(refhost::SettingsStore& store, const Json& request) {
  const auto& setting = setting_of(store, request);
  store.set(setting.section, setting.key, request["value"].get<std::string>());
  await_plugin("setting " + setting.key + " is");
  return setting_json(store, setting);
}

Json import_settings(refhost::SettingsStore& store, const Json& request) {
  std::vector<Assignment> wanted;
  for (const auto& one : request["settings"]) {
    const auto text = one.get<std::string>();
    const auto equals = text.find('=');
    if (equals == std::string::npos) {
      throw RequestError("\"" + text + "\" is no setting: give SECTION.KEY=VALUE");
    }
    wanted.push_back(checked_assignment(text.substr(0, equals), text.substr(equals + 1)));
  }
  store.set(wanted);
  await_plugin("the settings are");
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
  return ControlTable({
      {"config_list", {}, [host](const Json&, ControlStream&) { return list_settings(host.settings); }},
      {"config_get",
       {{"section"}, {"key"}},
       [host](const Json& request, ControlStream&) {
         return setting_json(host.settings, setting_of(host.settings, request));
       }},
      {"config_set",
       {{"section"}, {"key"}, {"value"}},
       [host](const Json& request, ControlStream&) { return set_setting(host.settings, request); }},
      {"config_import",
       {{"settings", Type::texts}},
       [host](const Json& request, ControlStream&) { return import_settings(host.settings, request); }},
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
      {"status", {}, [host](const Json&, ControlStream&) { return status_of(host); }},
      {"events",
       {{"types", Type::text, false}},
       [](const Json& request, ControlStream& stream) { return follow_events(request, stream); }},
  });
}

}  // namespace achost
