#include "door/control/field_watch.h"

#include <algorithm>
#include <map>
#include <string>

#include "door/control/reader_commands.h"
#include "door/why/card_value.h"
#include "refhost/radio_limits.h"
#include "uhfsim/text.h"

namespace achost {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kFieldWindow{1000};
constexpr milliseconds kFieldPeriod{250};
constexpr milliseconds kFieldLook{50};

// The power, and how far it may go.
Json radio_json(const line::Line& line, const refhost::SettingsStore& settings) {
  const auto region = settings.get("uhf", "region").value();
  const int power = settings.get_int("uhf", "transmit_power").value();
  const auto* const limit = refhost::radio_limit_of(region);
  const auto until = line.trial_until();
  const auto left = until.has_value() ? *until - line::Clock::now() : line::Clock::duration();
  return {{"power", power},
          {"most", std::max(power, limit == nullptr ? power : limit->most_power)},
          {"region", region},
          {"trial_s", until.has_value() ? Json(std::chrono::duration<double>(left).count()) : Json(nullptr)}};
}

// The decisive one of each tag that is known.
std::map<std::string, std::string> reasons_in(const std::vector<why::ToldSighting>& sightings) {
  std::map<std::string, std::string> reasons;
  for (const auto& sighting : sightings) {
    const auto latest = std::ranges::max_element(sighting.fates, {}, &why::ToldFate::to);
    if (latest != sighting.fates.end() && !latest->reasons.empty()) {
      reasons[sighting.epc] = latest->reasons.front().second;
    }
  }
  return reasons;
}

}  // namespace

FieldWatch::FieldWatch(line::Line& line, const refhost::SettingsStore& settings, milliseconds window)
    : settings_(settings), onlooker_(line.look_on()), field_(window) {}

void FieldWatch::wait(milliseconds longest) {
  for (auto piece = onlooker_->next(longest); piece.has_value(); piece = onlooker_->next(milliseconds(0))) {
    field_.take(*piece);
  }
}

std::vector<line::Bytes> FieldWatch::epcs() {
  std::vector<line::Bytes> epcs;
  std::ranges::transform(field_.seen(line::Clock::now()), std::back_inserter(epcs), &line::Field::Seen::epc);
  return epcs;
}

Json FieldWatch::seen() {
  const auto now = line::Clock::now();
  const int bits = settings_.get_int("uhf", "identification_bits").value();
  const auto type = settings_.get("uhf", "reader_type").value();
  const int polls = field_.polls(now);
  Json tags = Json::array();
  for (const auto& one : field_.seen(now)) {
    tags.push_back({{"epc", uhfsim::hex_of(one.epc)},
                    {"card", std::to_string(why::card_value(one.epc, bits, type))},
                    {"rssi", one.rssi},
                    {"share", static_cast<double>(one.polls) / std::max(polls, 1)},
                    {"read_at", wall_time(one.last).time_since_epoch().count()}});
  }
  return {{"polls", polls}, {"tags", std::move(tags)}};
}

Json follow_field(line::Line& line, const refhost::SettingsStore& settings,
                  const std::function<std::vector<why::ToldSighting>()>& sightings, ControlStream& stream) {
  FieldWatch watch(line, settings, kFieldWindow);
  stream.send({{"following", true}});
  std::vector<line::Bytes> told;
  std::map<std::string, std::string> reasons;
  auto next = line::Clock::now();
  while (!stream.is_over()) {
    watch.wait(kFieldLook);
    auto epcs = watch.epcs();
    const bool is_due = line::Clock::now() >= next;
    if (epcs == told && !is_due) {
      continue;
    }
    told = std::move(epcs);
    if (is_due) {  // who asks for reasons waits until they are known
      next = line::Clock::now() + kFieldPeriod;
      reasons = told.empty() || !sightings ? decltype(reasons)() : reasons_in(sightings());
    }
    Json field = watch.seen();
    for (auto& tag : field["tags"]) {
      const auto reason = reasons.find(tag["epc"].get<std::string>());
      tag["reason"] = reason == reasons.end() ? "" : reason->second;
    }
    field["radio"] = radio_json(line, settings);
    if (!stream.send({{"field", std::move(field)}})) {
      break;
    }
  }
  return Json::object();
}

}  // namespace achost
