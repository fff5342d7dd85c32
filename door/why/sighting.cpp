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

Json json_of(const std::vector<ToldFate>& fates) {
  Json all = Json::array();
  std::ranges::transform(fates, std::back_inserter(all), [](const ToldFate& fate) { return json_of(fate); });
  return all;
}

template <typename Value>
Value field_of(const Entry& entry, std::string_view name) {
  const auto found = std::ranges::find(entry.fields, name, &EntryField::first);
  if (found == entry.fields.end() || !std::holds_alternative<Value>(found->second)) {
    throw std::runtime_error("a sighting without \"" + std::string(name) + "\"");
  }
  return std::get<Value>(found->second);
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

Json json_of(const ToldSighting& sighting) {
  return {{"epc", sighting.epc},         {"card", sighting.card},           {"first", sighting.first},
          {"last", sighting.last},       {"polls", sighting.polls},         {"rssi", sighting.rssi},
          {"goes_on", sighting.goes_on}, {"fates", json_of(sighting.fates)}};
}

namespace {

// The journal keeps texts of so many bytes, and cuts others, which could not be read any more. With the decisive reason
// of each fate alone those of a usual sighting fit; of another one the latest do.
std::string stored(std::vector<ToldFate> fates) {
  auto text = json_of(fates).dump();
  if (text.size() > kLongestText) {
    for (ToldFate& fate : fates) {
      fate.reasons.resize(std::min<std::size_t>(fate.reasons.size(), 1), {Reason::kUnexplained, ""});
    }
    text = json_of(fates).dump();
  }
  while (text.size() > kLongestText) {
    fates.erase(fates.begin());
    text = json_of(fates).dump();
  }
  return text;
}

}  // namespace

Entry entry_of(const ToldSighting& sighting) {
  return {.kind = Kind::sighting,
          .card = sighting.card,
          .fields = {{"epc", sighting.epc},
                     {"first", sighting.first},
                     {"last", sighting.last},
                     {"polls", sighting.polls},
                     {"rssi", std::int64_t{sighting.rssi}},
                     {"goes_on", std::int64_t{sighting.goes_on}},
                     {"fates", stored(sighting.fates)}}};
}

ToldSighting sighting_of(const Entry& entry) {
  const auto fates = Json::parse(field_of<std::string>(entry, "fates"));
  ToldSighting sighting{.epc = field_of<std::string>(entry, "epc"),
                        .card = entry.card.value_or(0),
                        .first = field_of<std::int64_t>(entry, "first"),
                        .last = field_of<std::int64_t>(entry, "last"),
                        .polls = field_of<std::int64_t>(entry, "polls"),
                        .rssi = static_cast<int>(field_of<std::int64_t>(entry, "rssi")),
                        .goes_on = field_of<std::int64_t>(entry, "goes_on") != 0,
                        .fates = {}};
  std::ranges::transform(fates, std::back_inserter(sighting.fates), fate_of);
  return sighting;
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
