#include "door/why/sighting.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

namespace achost::why {
namespace {

using Json = nlohmann::ordered_json;

ToldFate told(const Fate& fate, const std::function<Milliseconds(Time)>& wall) {
  const auto number = [&](Time time) { return wall(time).time_since_epoch().count(); };
  const auto show = [&](Time time) { return local_time(wall(time), "%H:%M:%S.%L"); };
  ToldFate result{
      .from = number(fate.from),
      .to = number(fate.to),
      .polls = fate.polls,
      .at_boundary = fate.at_boundary,
      .announced_from = fate.announced_from.has_value() ? std::optional(number(*fate.announced_from)) : std::nullopt,
      .reasons = {}};
  for (const Because& because : fate.reasons) {
    auto facts = facts_of(because, fate.from, show);
    facts["index"] = std::to_string(fate.number);
    facts["count"] = std::to_string(fate.count);
    facts["text"] = fate.flaw;
    result.reasons.emplace_back(because.reason, sentence(because.reason, facts));
  }
  return result;
}

ToldFate fate_of(const Json& json) {
  ToldFate fate{.from = json.at("from"),
                .to = json.at("to"),
                .polls = json.at("polls"),
                .at_boundary = json.at("at_boundary"),
                .reasons = {}};
  if (json.contains("announced_from")) {
    fate.announced_from = json.at("announced_from").get<std::int64_t>();
  }
  for (const Json& one : json.at("reasons")) {
    const auto code = one.at("code").get<std::string>();
    const auto reason = reason_of(code);
    if (!reason.has_value()) {
      throw std::runtime_error("no reason is called \"" + code + "\"");
    }
    fate.reasons.emplace_back(*reason, one.at("text").get<std::string>());
  }
  return fate;
}

}  // namespace

ToldSighting told(const Sighting& sighting, const std::function<Milliseconds(Time)>& wall) {
  ToldSighting result{.epc = hexadecimal(sighting.epc),
                      .card = sighting.card,
                      .first = wall(sighting.first).time_since_epoch().count(),
                      .last = wall(sighting.last).time_since_epoch().count(),
                      .polls = sighting.polls,
                      .rssi = sighting.rssi,
                      .goes_on = sighting.goes_on,
                      .fates = {}};
  std::ranges::transform(sighting.fates, std::back_inserter(result.fates),
                         [&](const Fate& fate) { return told(fate, wall); });
  return result;
}

Json json_of(const ToldFate& fate) {
  Json reasons = Json::array();
  for (const auto& [reason, text] : fate.reasons) {
    reasons.push_back({{"code", row_of(reason).name}, {"text", text}});
  }
  Json json = {{"from", fate.from}, {"to", fate.to}, {"polls", fate.polls}, {"at_boundary", fate.at_boundary}};
  if (fate.announced_from.has_value()) {
    json["announced_from"] = *fate.announced_from;
  }
  json["reasons"] = reasons;
  return json;
}

Json json_of(const ToldSighting& sighting) {
  Json fates = Json::array();
  for (const ToldFate& fate : sighting.fates) {
    fates.push_back(json_of(fate));
  }
  return {{"epc", sighting.epc},     {"card", sighting.card}, {"first", sighting.first},     {"last", sighting.last},
          {"polls", sighting.polls}, {"rssi", sighting.rssi}, {"goes_on", sighting.goes_on}, {"fates", fates}};
}

std::vector<ToldFate> fates_of(const Json& json) {
  std::vector<ToldFate> fates;
  std::ranges::transform(json, std::back_inserter(fates), fate_of);
  return fates;
}

ToldSighting sighting_of(const Json& json) {
  return {.epc = json.at("epc"),
          .card = json.at("card"),
          .first = json.at("first"),
          .last = json.at("last"),
          .polls = json.at("polls"),
          .rssi = json.at("rssi"),
          .goes_on = json.at("goes_on"),
          .fates = fates_of(json.at("fates"))};
}

std::string hexadecimal(std::span<const std::uint8_t> bytes) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += {kDigits[byte / 16], kDigits[byte % 16]};
  }
  return text;
}

}  // namespace achost::why
