#include "door/control/control_status.h"

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <system_error>

#include "door/control/door_commands.h"
#include "door/control/reader_commands.h"
#include "door/journal/journal.h"
#include "refhost/bus_counters.h"
#include "refhost/bus_view.h"
#include "refhost/watchdog.h"

// jemalloc's, in a program that is linked with it.
extern "C" [[gnu::weak]] int mallctl(const char*, void*, std::size_t*, void*, std::size_t);

namespace achost {
namespace {

// What the program has allocated and not freed, in bytes; null where nobody counts it.
Json allocated() {
  if (mallctl == nullptr) {
    return nullptr;
  }
  std::uint64_t epoch = 1;
  std::size_t size = sizeof epoch;
  mallctl("epoch", &epoch, &size, &epoch, size);  // the figures are those of the latest one
  std::size_t bytes = 0;
  size = sizeof bytes;
  return mallctl("stats.allocated", &bytes, &size, nullptr, 0) == 0 ? Json(bytes) : Json(nullptr);
}

Json threads() {
  using refhost::WatchdogTable;
  Json list = Json::array();
  for (const auto& [name, silence] :
       refhost::WatchdogTable::instance().silences(refhost::WatchdogTable::Clock::now())) {
    list.push_back({{"name", name}, {"silent_ms", silence.count()}});
  }
  return list;
}

Json alarms(const Alarms& alarms) {
  Json list = Json::array();
  for (const auto& [name, text] : alarms.standing()) {
    list.push_back({{"name", name}, {"text", text}});
  }
  return list;
}

Json not_in_force(const SettingsChanges& changes) {
  Json list = Json::array();
  for (const auto& [section, key, stored, in_force, reason] : changes.awaited()) {
    list.push_back(
        {{"section", section}, {"key", key}, {"stored", stored}, {"in_force", in_force}, {"reason", reason}});
  }
  return list;
}

Json queues() {
  Json list = Json::array();
  for (const auto& queue : refhost::queue_states()) {
    list.push_back(
        {{"name", queue.name}, {"waiting", queue.waiting}, {"bound", queue.bound}, {"dropped", queue.dropped}});
  }
  return list;
}

Json bus() {
  const auto counters = refhost::bus_counters();
  return {{"delivered", counters.delivered},
          {"dropped", counters.dropped},
          {"undelivered", counters.undelivered},
          {"failed_handlers", counters.failures}};
}

Json reader_settings(const refhost::SettingsStore& store) {
  Json settings = Json::object();
  for (const char* key : {"region", "transmit_power", "work_channel", "operation_mode", "read_interval",
                          "read_interval_diff_tags", "probe_interval"}) {
    settings[key] = store.get("uhf", key).value();
  }
  return settings;
}

// Of all files of each store, in bytes; what is not there has none.
Json sizes(const std::filesystem::path& state) {
  Json sizes = Json::object();
  for (const char* const store : {"settings.db", "users.db", "audit.db", "journal.db"}) {
    std::uintmax_t bytes = 0;
    for (const char* const suffix : {"", "-wal"}) {
      std::error_code missing;
      const auto size = std::filesystem::file_size(state / (std::string(store) + suffix), missing);
      bytes += missing ? 0 : size;
    }
    sizes[store] = bytes;
  }
  return sizes;
}

Json disk(const std::filesystem::path& state) {
  std::error_code unknown;
  const auto space = std::filesystem::space(state, unknown);
  const auto bytes = [&](std::uintmax_t size) { return unknown ? Json(nullptr) : Json(size); };
  return {{"free_bytes", bytes(space.available)}, {"size_bytes", bytes(space.capacity)}, {"stores", sizes(state)}};
}

Json desired(DesiredState& state) {
  const auto summary = state.summary();
  return {{"revision", summary.revision.has_value() ? Json(*summary.revision) : Json(nullptr)},
          {"differences", summary.differences}};
}

Json journal(const std::filesystem::path& state) {
  const auto extent = Journal::extent(state);
  return {{"id", extent.id}, {"first", extent.first}, {"last", extent.last}};
}

Json alarm_names(const Alarms& alarms) {
  Json names = Json::array();
  for (const auto& [name, text] : alarms.standing()) {
    names.push_back(name);
  }
  return names;
}

}  // namespace

Json figures_of(const ControlledHost& host) {
  const auto uptime = std::chrono::steady_clock::now() - host.started;
  Json figures = {{"version", host.version},
                  {"uptime_s", std::chrono::duration<double>(uptime).count()},
                  {"allocated", allocated()},
                  {"reader", health_of(host.line)},
                  {"door", json_of(host.door.report())},
                  {"alarms", alarm_names(host.alarms)},
                  {"second_opinion", host.second_opinion()},
                  {"queues", queues()},
                  {"bus", bus()},
                  {"journal", journal(host.state)},
                  {"disk", disk(host.state)}};
  figures.update(host.figures());
  return figures;
}

Json status_of(const ControlledHost& host) {
  const auto uptime = std::chrono::steady_clock::now() - host.started;
  const std::string plugin = host.plugin();
  return {{"process", getpid()},
          {"uptime_s", std::chrono::duration_cast<std::chrono::seconds>(uptime).count()},
          {"state", host.state.string()},
          {"plugin", plugin.empty() ? Json(nullptr) : Json(plugin)},
          {"reader", host.reader},
          {"health", health_of(host.line)},
          {"alarms", alarms(host.alarms)},
          {"door", json_of(host.door.report())},
          {"settings", reader_settings(host.settings)},
          {"second_opinion", host.second_opinion()},
          {"not_in_force", not_in_force(host.changes)},
          {"desired", desired(host.stores.desired())},
          {"threads", threads()},
          {"queues", queues()},
          {"allocated", allocated()},
          {"bus", bus()}};
}

}  // namespace achost
