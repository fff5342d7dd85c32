#include "door/why/standing.h"

#include <strings.h>

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>

namespace achost::why {
namespace {

using Json = nlohmann::ordered_json;
using std::chrono::microseconds;

constexpr std::string_view kStanding = "standing ";

Mode mode_of(const std::string& text) {
  constexpr std::pair<const char*, Mode> kModes[] = {
      {"inhibit", Mode::kInhibit}, {"trigger", Mode::kTrigger}, {"continuous", Mode::kContinuous}};
  for (const auto& [name, mode] : kModes) {
    if (strcasecmp(name, text.c_str()) == 0) {
      return mode;
    }
  }
  return Mode::kUnknown;
}

std::int64_t number_of(Time time) { return std::chrono::floor<microseconds>(time.time_since_epoch()).count(); }

// Of any number, as a damaged file may have: within what the clock can count.
Time time_of(std::int64_t number) {
  constexpr microseconds kLongest = std::chrono::hours(24 * 365 * 100);
  return Time(std::clamp(microseconds(number), microseconds(0), kLongest));
}

template <typename Value>
Json pairs(const std::deque<std::pair<Time, Value>>& list) {
  Json all = Json::array();
  for (const auto& [at, value] : list) {
    all.push_back(Json::array({number_of(at), value}));
  }
  return all;
}

template <typename Value>
std::deque<std::pair<Time, Value>> pairs(const Json& json, std::size_t most) {
  std::deque<std::pair<Time, Value>> all;
  for (const Json& one : json) {
    if (all.size() < most) {
      all.emplace_back(time_of(one.at(0).get<std::int64_t>()), one.at(1).get<Value>());
    }
  }
  return all;
}

template <typename Value>
void add(std::deque<std::pair<Time, Value>>& list, Value value, Time at, std::size_t most) {
  list.emplace_back(at, value);
  if (list.size() > most) {
    list.pop_front();
  }
}

}  // namespace

WitnessSettings settings_of(const SettingTexts& texts) {
  const auto text = [&](std::string_view name) {
    const auto found = texts.find(name);
    return found == texts.end() ? std::string() : found->second;
  };
  const auto number = [&](std::string_view name) {
    const std::string digits = text(name);
    int value = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return value;
  };
  return {.rules = {.operation_mode = mode_of(text("operation_mode")),
                    .trig_idle = number("trig_idle"),
                    .trigger_timeout = milliseconds(number("trigger_timeout")),
                    .read_interval = milliseconds(number("read_interval")),
                    .read_interval_diff_tags = milliseconds(number("read_interval_diff_tags"))},
          .probe_interval = milliseconds(number("probe_interval")),
          .identification_bits = number("identification_bits"),
          .reader_type = text("reader_type")};
}

void Standing::changed_to(int new_level, Time at) {
  level = new_level;
  add(edges, new_level, at, kMostEdges);
}

void Standing::was_announced(Card card, Time at) { add(announced, card, at, kMostAnnounced); }

std::string note_of(const Standing& standing, Time now) {
  const auto rules = settings_of(standing.settings).rules;
  auto announced = standing.announced;
  std::erase_if(announced, [&](const auto& one) {
    return one.first + 2 * std::max(rules.read_interval, rules.read_interval_diff_tags) < now - Witness::kLate;
  });
  Json reader = nullptr;
  if (standing.reader.has_value()) {
    const auto& [state, cause, since] = *standing.reader;
    reader = {{"state", state}, {"cause", cause}, {"since", number_of(since)}};
  }
  const Json note = {{"start", standing.is_start},
                     {"settings", standing.settings},
                     {"trigger_line", standing.trigger_line},
                     {"level", standing.level.has_value() ? Json(*standing.level) : Json(nullptr)},
                     {"edges", pairs(standing.edges)},
                     {"announced", pairs(announced)},
                     {"reader", reader}};
  return std::string(kStanding) + note.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<Standing> standing_of(std::string_view note) {
  if (!note.starts_with(kStanding)) {
    return std::nullopt;
  }
  try {
    const auto json = Json::parse(note.substr(kStanding.size()));
    Standing standing{.is_start = json.at("start"),
                      .settings = json.at("settings").get<SettingTexts>(),
                      .trigger_line = json.at("trigger_line"),
                      .edges = pairs<int>(json.at("edges"), Standing::kMostEdges),
                      .announced = pairs<Card>(json.at("announced"), Standing::kMostAnnounced)};
    if (const Json& level = json.at("level"); !level.is_null()) {
      standing.level = level.get<int>();
    }
    if (const Json& reader = json.at("reader"); !reader.is_null()) {
      standing.reader = {reader.at("state"), reader.at("cause"), time_of(reader.at("since").get<std::int64_t>())};
    }
    return standing;
  } catch (const Json::exception&) {
    return std::nullopt;
  }
}

}  // namespace achost::why
