#include "door/control/schedule_commands.h"

#include <chrono>

#include "door/base/failure.h"
#include "door/base/local_time.h"
#include "door/journal/changes.h"
#include "door/services/schedule_text.h"
#include "refhost/log_entry.h"
#include "refhost/store_report.h"

namespace achost {
namespace {

using Type = ControlField::Type;

constexpr std::size_t kLargestTable = std::size_t{4} << 20;

Json as_json(const Schedules& all, const Schedule& schedule, Schedules::Time now) {
  Json windows = Json::array();
  for (const auto& window : schedule.windows) {
    windows.push_back(text_of(window));
  }
  const bool holds = all.contains(schedule, now);
  const auto begin = holds || !schedule.is_right ? std::nullopt : all.next_begin(schedule, now);
  return {{"schedule", schedule.name},
          {"windows", std::move(windows)},
          {"holds", holds},
          {"begins",
           begin.has_value() ? Json(iso_time(std::chrono::floor<std::chrono::milliseconds>(*begin))) : Json(nullptr)},
          {"damaged", !schedule.is_right}};
}

Json list(const Schedules& all) {
  const auto now = std::chrono::system_clock::now();
  Json schedules = Json::array();
  for (const auto& schedule : all.all) {
    schedules.push_back(as_json(all, schedule, now));
  }
  Json holidays = Json::array();
  for (const auto& [day, name] : all.holidays) {
    holidays.push_back({{"holiday", text_of(day)}, {"name", name}});
  }
  return {{"schedules", std::move(schedules)}, {"holidays", std::move(holidays)}};
}

std::string received(const std::string& name, ControlStream& stream) {
  std::string text;
  for (std::string piece; !(piece = stream.receive_bytes()).empty();) {
    text += piece;
    if (text.size() > kLargestTable) {
      throw Failure(kUsage, name + " is too long for a table of schedules: give fewer windows and holidays");
    }
  }
  return text;
}

std::string counted(const Schedules& schedules) {
  const auto count = [](std::size_t number, const char* noun) {
    return refhost::counted(static_cast<std::int64_t>(number), noun);
  };
  return count(schedules.all.size(), "schedule") + " and " + count(schedules.holidays.size(), "holiday");
}

Json import(UserStore& store, const std::string& name, ControlStream& stream) {
  const auto schedules = parse_schedules(received(name, stream), name);
  store.replace_schedules(schedules);
  return {{"done", counted(schedules) + " are stored, in place of those before"}};
}

// What would be different, a line each: "changed schedule office: mon-fri 08:00-18:00".
Json plan(const UserStore& store, const std::string& name, ControlStream& stream) {
  const auto schedules = parse_schedules(received(name, stream), name);
  std::string lines;
  for (const auto& note : store.plan_schedules(schedules)) {
    lines += text_of_schedule_change(note) + "\n";
  }
  stream.send_bytes(lines);
  return {{"done", counted(schedules)}};
}

std::string remove(UserStore& store, const std::string& name) {
  if (!store.remove_schedule(name)) {
    throw Failure(kFailed,
                  "there is no schedule \"" + refhost::log::escape(name) + "\": achost schedule list shows all");
  }
  return "schedule " + refhost::log::escape(name) + " is removed";
}

}  // namespace

std::vector<ControlCommand> schedule_commands(Stores& stores) {
  return {{"schedule_list", {}, [&stores](const Json&, ControlStream&) { return list(*stores.users().schedules()); }},
          {.name = "schedule_import",
           .fields = {{"name"}},
           .run = [&stores](const Json& request,
                            ControlStream& stream) { return import(stores.users(), request["name"], stream); },
           .changes = true,
           .takes_bytes = true},
          {.name = "schedule_plan",
           .fields = {{"name"}},
           .run = [&stores](const Json& request,
                            ControlStream& stream) { return plan(stores.users(), request["name"], stream); },
           .takes_bytes = true},
          {"schedule_export",
           {},
           [&stores](const Json&, ControlStream& stream) -> Json {
             stream.send_bytes(schedules_as_text(*stores.users().schedules()));
             return Json::object();
           }},
          {.name = "schedule_remove",
           .fields = {{"name"}},
           .run = [&stores](const Json& request, ControlStream&) -> Json {
             return {{"done", remove(stores.users(), request["name"])}};
           },
           .changes = true}};
}

}  // namespace achost
