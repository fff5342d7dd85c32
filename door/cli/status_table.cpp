#include "door/cli/status_table.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <vector>

#include "cli/text_table.h"
#include "door/cli/door_table.h"
#include "door/cli/health_line.h"
#include "refhost/log_entry.h"

namespace achost {
namespace {

using Rows = std::vector<std::vector<std::string>>;

std::string seconds_ago(std::int64_t milliseconds) {
  std::array<char, 32> buffer{};
  std::snprintf(buffer.data(), buffer.size(), "%.1f s ago", static_cast<double>(milliseconds) / 1000);
  return buffer.data();
}

std::string text_of(const Json& value) { return value.is_string() ? value.get<std::string>() : value.dump(); }

Rows pairs_of(const Json& object) {
  Rows rows;
  for (const auto& [name, value] : object.items()) {
    rows.push_back({"  " + name, text_of(value)});
  }
  return rows;
}

// Settings of the reader, each with what is in force where that is not what is stored.
Rows settings(const Json& status) {
  Rows rows = pairs_of(status.at("settings"));
  for (const auto& one : status.at("not_in_force")) {
    const auto row =
        std::ranges::find_if(rows, [&](const auto& cells) { return cells.front() == "  " + text_of(one.at("key")); });
    if (row != rows.end() && one.at("section") == "uhf" && one.at("in_force") != one.at("stored")) {
      row->back() += " (in force: " + text_of(one.at("in_force")) + ")";
    }
  }
  return rows;
}

std::string threads(const Json& list) {
  Rows rows = {{"THREAD", "LAST REPORTED"}};
  for (const auto& thread : list) {
    rows.push_back({"  " + text_of(thread.at("name")), seconds_ago(thread.at("silent_ms"))});
  }
  return aligned(rows);
}

std::string queues(const Json& list) {
  Rows rows = {{"QUEUE", "WAITING", "BOUND", "DROPPED"}};
  for (const auto& queue : list) {
    rows.push_back({"  " + text_of(queue.at("name")), text_of(queue.at("waiting")), text_of(queue.at("bound")),
                    text_of(queue.at("dropped"))});
  }
  return aligned(rows);
}

// Whether the door is as the one who keeps it wants it.
std::string desired(const Json& desired) {
  if (desired.at("revision").is_null()) {
    return "nothing";
  }
  const auto differences = desired.at("differences").get<std::int64_t>();
  return "revision " + text_of(desired.at("revision")) +
         (differences == 0 ? "" : ", changed at the door: achost desired show tells what");
}

// Nothing at all where nothing is wrong.
std::string alarms(const Json& list) {
  Rows rows;
  for (const auto& alarm : list) {
    rows.push_back({"  " + text_of(alarm.at("name")), refhost::log::escape(text_of(alarm.at("text")))});
  }
  return rows.empty() ? "" : "ALARMS\n" + aligned(rows);
}

std::string second_opinion(const Json& counters) {
  return counters.is_null() ? "" : "SECOND OPINION ON THE READINGS\n" + aligned(pairs_of(counters));
}

}  // namespace

std::string status_table(const Json& status) {
  const auto& plugin = status.at("plugin");
  return "reader " + health_line(status.at("health")) + "\n" + alarms(status.at("alarms")) +
         aligned({{"HOST", ""},
                  {"  process", text_of(status.at("process"))},
                  {"  up for", duration_text(status.at("uptime_s"))},
                  {"  plug-in", plugin.is_null() ? "not started yet" : text_of(plugin)},
                  {"  reader", text_of(status.at("reader"))},
                  {"  state", text_of(status.at("state"))},
                  {"  desired", desired(status.at("desired"))}}) +
         "DOOR\n" + aligned(door_rows(status.at("door"))) + "SETTINGS OF THE READER\n" + aligned(settings(status)) +
         threads(status.at("threads")) + queues(status.at("queues")) + "MESSAGES\n" +
         aligned(pairs_of(status.at("bus"))) + second_opinion(status.at("second_opinion"));
}

}  // namespace achost
