#include "door/why/sighting.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <span>
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
    const auto tell = [&](std::string_view name) -> std::optional<std::string> {
      return name == "index"   ? std::to_string(fate.number)
             : name == "count" ? std::to_string(fate.count)
             : name == "text"  ? fate.flaw
                               : fact_of(because, name, fate.from, show);
    };
    result.reasons.emplace_back(because.reason, sentence_of(because.reason, tell));
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

// Texts of this room need no escape; what comes from elsewhere may.
void append_quoted(std::string& text, const std::string& words) {
  const auto is_plain = [](char one) { return one >= ' ' && one <= '~' && one != '"' && one != '\\'; };
  if (std::ranges::all_of(words, is_plain)) {
    text.append("\"").append(words).append("\"");
  } else {
    text += Json(words).dump(-1, ' ', false, Json::error_handler_t::replace);
  }
}

void append_json(std::string& text, const std::pair<Reason, std::string>& reason) {
  text.append("{\"code\":\"").append(row_of(reason.first).name).append("\",\"text\":");
  append_quoted(text, reason.second);
  text += '}';
}

// most: so many of its reasons.
void append_json(std::string& text, const ToldFate& fate, std::size_t most) {
  text.append("{\"from\":").append(std::to_string(fate.from)).append(",\"to\":").append(std::to_string(fate.to));
  text.append(",\"polls\":").append(std::to_string(fate.polls));
  text.append(",\"at_boundary\":").append(fate.at_boundary ? "true" : "false");
  if (fate.announced_from.has_value()) {
    text.append(",\"announced_from\":").append(std::to_string(*fate.announced_from));
  }
  text += ",\"reasons\":[";
  for (std::size_t i = 0; i < std::min(most, fate.reasons.size()); ++i) {
    text += i == 0 ? "" : ",";
    append_json(text, fate.reasons[i]);
  }
  text += "]}";
}

// Written at once, as one is told for each card in the field several times a minute.
std::string json_text(std::span<const ToldFate> fates, std::size_t most_reasons) {
  std::string text = "[";
  for (const ToldFate& fate : fates) {
    text += text.size() == 1 ? "" : ",";
    append_json(text, fate, most_reasons);
  }
  return text += ']';
}

constexpr auto kAllReasons = static_cast<std::size_t>(-1);

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
  return {{"epc", sighting.epc},         {"card", sighting.card},
          {"first", sighting.first},     {"last", sighting.last},
          {"polls", sighting.polls},     {"rssi", sighting.rssi},
          {"goes_on", sighting.goes_on}, {"fates", Json::parse(json_text(sighting.fates, kAllReasons))}};
}

namespace {

// The journal keeps texts of so many bytes, and cuts others, which could not be read any more. With the decisive reason
// of each fate alone those of a usual sighting fit; of another one the latest do.
std::string stored(std::span<const ToldFate> fates) {
  auto text = json_text(fates, kAllReasons);
  if (text.size() > kLongestText) {
    text = json_text(fates, 1);
  }
  while (text.size() > kLongestText) {
    fates = fates.subspan(1);
    text = json_text(fates, 1);
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
