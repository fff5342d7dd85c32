#include "door/control/why_commands.h"

#include <algorithm>
#include <charconv>
#include <chrono>

#include "door/base/local_time.h"
#include "door/why/evidence.h"

namespace achost {
namespace {

using std::chrono::milliseconds;

// A card that was read so lately lies in the field.
constexpr std::int64_t kNow = 2000;  // ms

std::int64_t now_in_ms() {
  return std::chrono::floor<milliseconds>(std::chrono::system_clock::now()).time_since_epoch().count();
}

std::string today() { return local_time(Milliseconds(milliseconds(now_in_ms())), "%Y-%m-%d"); }

why::Question question_of(const Json& request) {
  why::Question question{.card = {}, .epc = request.value("epc", ""), .at = {}};
  question.from = request["from"].get<std::int64_t>();
  question.to = request["to"].get<std::int64_t>();
  if (request.contains("at")) {
    question.at = request["at"].get<std::int64_t>();
  }
  if (request.contains("card")) {
    const auto text = request["card"].get<std::string>();
    std::uint64_t card = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), card);
    if (error != std::errc() || end != text.data() + text.size()) {
      throw RequestError("\"" + text + "\" is no card: a decimal number");
    }
    question.card = card;
  }
  if (question.card.has_value() != question.epc.empty()) {
    throw RequestError("\"why\" takes a \"card\" or an \"epc\"");
  }
  return question;
}

void add(const std::vector<why::ToldSighting>& some, std::vector<why::ToldSighting>& all) {
  for (const auto& one : some) {
    if (std::ranges::find(all, one) == all.end()) {
      all.push_back(one);
    }
  }
}

std::string text_of(const why::ToldSighting& sighting) {
  const auto seconds = static_cast<double>(sighting.last - sighting.first) / 1000;
  std::array<char, 96> figures{};
  std::snprintf(figures.data(), figures.size(), "in the field for %.1f s, read %lld times, RSSI %d", seconds,
                static_cast<long long>(sighting.polls), sighting.rssi);
  std::string text = "card " + std::to_string(sighting.card) + " (EPC " + sighting.epc + ")  " + figures.data() + "\n";
  const auto latest = std::ranges::max_element(sighting.fates, {}, &why::ToldFate::to);
  if (latest != sighting.fates.end()) {
    for (const auto& [reason, words] : latest->reasons) {
      text += "  " + words + "\n";
    }
  }
  return text;
}

Json explain_card(const Json& request, const WhySources& sources) {
  const auto question = question_of(request);
  const auto live = sources.live ? sources.live() : std::vector<why::ToldSighting>();
  auto evidence = why::evidence_of(sources.state, question);
  add(live, evidence.sightings);
  const auto explanation = why::explain(question, evidence, sources.name_of);
  Json answer = json_of(explanation);
  answer["text"] = why::text_of(explanation, today());
  return answer;
}

}  // namespace

ControlCommand why_command(WhySources sources) {
  using FieldType = ControlField::Type;
  return {
      "why",
      {{"card", FieldType::text, false},
       {"epc", FieldType::text, false},
       {"from", FieldType::integer},
       {"to", FieldType::integer},
       {"at", FieldType::integer, false}},
      [sources = std::move(sources)](const Json& request, ControlStream&) { return explain_card(request, sources); }};
}

Json explain_now(const WhySources& sources) {
  if (!sources.live) {
    throw std::runtime_error("nobody looks at the readings: the plug-in has the port itself (--direct)");
  }
  const auto oldest = now_in_ms() - kNow;
  Json list = Json::array();
  std::string text;
  for (const auto& sighting : sources.live()) {
    if (sighting.last >= oldest) {
      list.push_back(json_of(sighting));
      text += text_of(sighting);
    }
  }
  return {{"sightings", list}, {"text", text.empty() ? "no card lies in the field\n" : text}};
}

}  // namespace achost
