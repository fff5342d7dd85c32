#include "gateway/fleet/doors.h"

#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <chrono>

#include "cli/failure.h"
#include "cli/paragraph.h"
#include "cli/text_table.h"
#include "door/base/encoding.h"
#include "door/base/local_time.h"
#include "gateway/fleet/entry_line.h"
#include "gateway/mqtt/topics.h"

namespace fleet {
namespace {

constexpr std::size_t kMostNamed = 10;
constexpr std::array kRetained = {"state", "health", "figures", "desired", "desired/answer"};

std::string some_names(const Doors& doors) {
  std::string names;
  std::size_t count = 0;
  for (const auto& [id, door] : doors) {
    if (++count > kMostNamed) {
      return names + " and " + std::to_string(doors.size() - kMostNamed) + " more";
    }
    names += (names.empty() ? "" : ", ") + id;
  }
  return names;
}

std::string local(std::int64_t time) {
  return time == 0 ? "-" : achost::local_time(achost::Milliseconds(std::chrono::milliseconds(time)), "%Y-%m-%d %H:%M");
}

// "8", "7 of 8" where it has not taken what it is to have.
std::string revision_of(const Door& door) {
  const auto has = number_in(door.state, "revision");
  const std::string text = has.has_value() ? std::to_string(*has) : "-";
  return door.desired.has_value() && door.desired != has ? text + " of " + std::to_string(*door.desired) : text;
}

std::string number_or_dash(const std::optional<std::int64_t>& number) {
  return number.has_value() ? std::to_string(*number) : "-";
}

// "closed", with its mode where that is no usual one.
std::string lock_of(const Door& door) {
  const auto lock = shown(text_in(door.state, "lock"));
  const auto mode = text_in(door.state, "mode");
  return mode.empty() || mode == "normal" || !door.is_online() ? lock : lock + " (" + shown(mode) + ")";
}

std::size_t alarms_of(const Door& door) {
  const Json alarms = value_in(door.state, "alarms");
  return alarms.is_array() ? alarms.size() : 0;
}

std::string sentence_of(const std::string& id, const Door& door) {
  std::string text = id + " " + (door.is_online() ? "online" : "offline, last seen " + local(door.seen));
  text += ", reader " + shown(text_in(door.state, "reader")) + ", " + lock_of(door);
  text += ", revision " + revision_of(door);
  const auto drift = number_in(door.state, "drift").value_or(0);
  text += drift == 0 ? "" : ", drift " + std::to_string(drift);
  const auto alarms = alarms_of(door);
  return text + (alarms == 0 ? "" : ", alarms " + std::to_string(alarms)) + "\n";
}

std::string sentences(const Doors& doors, std::size_t width) {
  constexpr std::size_t kIndent = 2;
  std::string text;
  for (const auto& [id, door] : doors) {
    text += cli::wrapped(sentence_of(id, door), kIndent, width);
    text += text.ends_with('\n') ? "" : "\n";
  }
  return text;
}

}  // namespace

Doors doors_of(Centre& centre) {
  Doors doors;
  const auto note = [&doors](const mqtt::Message& message) {
    const auto place = mqtt::topics::place_of(message.topic);
    if (!place.has_value() || message.payload.empty()) {
      return;
    }
    Door& door = doors[std::string(place->door)];
    const Json told = object_of(message.payload);
    if (place->rest == "desired") {
      door.desired = number_in(told, "revision");
      return;  // the centre's words
    }
    if (place->rest == "state") {
      door.state = told;
    }
    door.seen = std::max(door.seen, number_in(told, "at").value_or(0));
  };
  for (const char* const what : kRetained) {
    centre.listen(mqtt::topics::of("+", what), note);
  }
  centre.settle();
  for (const char* const what : kRetained) {
    centre.leave(mqtt::topics::of("+", what));
  }
  return doors;
}

std::set<std::string> named_by(const std::vector<std::string>& patterns, const Doors& doors, bool is_new) {
  std::set<std::string> named;
  if (patterns.empty()) {
    std::ranges::transform(doors, std::inserter(named, named.end()), [](const auto& entry) { return entry.first; });
  }
  for (const auto& pattern : patterns) {
    const auto before = named.size();
    bool is_known = false;
    for (const auto& [id, door] : doors) {
      if (fnmatch(pattern.c_str(), id.c_str(), 0) == 0) {
        named.insert(id);
        is_known = true;
      }
    }
    if (!is_known && is_new && mqtt::topics::is_id(pattern)) {
      named.insert(pattern);
    } else if (!is_known && named.size() == before) {
      throw cli::Failure(cli::kUsage,
                         "no door is called " + achost::in_quotes(pattern) +
                             (doors.empty() ? ": none has told the broker of itself, or you may not read it"
                                            : ": there are " + some_names(doors)));
    }
  }
  return named;
}

std::string doors_as_table(const Doors& doors, std::size_t width) {
  std::vector<std::vector<std::string>> rows = {
      {"DOOR", "IS", "READER", "LOCK", "REVISION", "DRIFT", "ALARMS", "LAST SEEN"}};
  for (const auto& [id, door] : doors) {
    rows.push_back({id, door.is_online() ? "online" : "offline", shown(text_in(door.state, "reader")), lock_of(door),
                    revision_of(door), number_or_dash(number_in(door.state, "drift")), std::to_string(alarms_of(door)),
                    door.is_online() ? "now" : local(door.seen)});
  }
  std::string table = achost::aligned(rows);
  std::size_t widest = 0;
  for (std::size_t begin = 0; begin < table.size(); begin = table.find('\n', begin) + 1) {
    widest = std::max(widest, table.find('\n', begin) - begin);
  }
  return width == 0 || widest <= width ? table : sentences(doors, width);
}

std::string doors_as_json(const Doors& doors) {
  std::string text;
  for (const auto& [id, door] : doors) {
    Json line = {{"door", id}};
    line.update(door.state);
    line["online"] = door.is_online();
    line["desired"] = door.desired.has_value() ? Json(*door.desired) : Json();
    line["seen"] = door.seen == 0 ? Json() : Json(door.seen);
    text += line_of(line) + "\n";
  }
  return text;
}

}  // namespace fleet
