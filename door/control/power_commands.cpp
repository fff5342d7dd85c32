#include "door/control/power_commands.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "door/control/field_watch.h"
#include "door/control/reader_commands.h"
#include "door/journal/changes.h"
#include "door/why/printed_number.h"
#include "line/power_choice.h"
#include "refhost/radio_limits.h"

namespace achost {
namespace {

using std::chrono::milliseconds;
using Type = ControlField::Type;

// What a phone that has gone leaves lasts so long.
constexpr std::int64_t kUsualTrial = 10;  // s
constexpr std::int64_t kLongestTrial = 60;
constexpr std::int64_t kLongestMeasure = 3000;  // ms; a client waits for the answer

std::int64_t number_up_to(const Json& request, const char* field, std::int64_t usual, std::int64_t most) {
  const auto number = request.value(field, usual);
  if (number < 0 || number > most) {
    throw RequestError(std::string("\"") + field + "\" is 0 to " + std::to_string(most) + ", not " +
                       std::to_string(number));
  }
  return number;
}

int answered(const line::Line& line, std::optional<int> power) {
  if (power.has_value()) {
    return *power;
  }
  const auto health = line.health();
  throw std::runtime_error(health.cause.empty() ? "the reader has not answered: try again"
                                                : "the reader does not answer: " + health.cause);
}

// What the polls read within that time, which begins with the next one.
Json measured(const ControlledRadio& radio, milliseconds time) {
  FieldWatch watch(*radio.line, radio.settings, time);
  const auto until = line::Clock::now() + time;
  for (auto now = line::Clock::now(); now < until; now = line::Clock::now()) {
    watch.wait(std::chrono::ceil<milliseconds>(until - now));
  }
  return watch.seen();
}

Json try_power(const ControlledRadio& radio, const Json& request) {
  auto& line = needed(radio.line);
  const auto measure = milliseconds(number_up_to(request, "measure", 0, kLongestMeasure));
  const auto how_long = std::chrono::seconds(number_up_to(request, "seconds", kUsualTrial, kLongestTrial));
  Json answer;
  if (request.contains("power")) {
    const auto power = request["power"].get<std::int64_t>();
    radio.settings.check({{"uhf", "transmit_power", std::to_string(power)}});
    if (!line.trial_until().has_value()) {
      radio.note(command_given("try_power", {{"power", refhost::power_text(static_cast<int>(power))}}));
    }
    answer["power"] = answered(line, line.try_power(static_cast<int>(power), how_long + measure));
  } else {
    answer["power"] = answered(line, line.end_trial());
  }
  if (measure.count() > 0) {
    answer.update(measured(radio, measure));
  }
  return answer;
}

// "3000:1 2500:0.98".
line::Place place_from(const std::string& text) {
  line::Place place;
  const char* at = text.data();
  const char* const end = at + text.size();
  while (at != end) {
    line::ShareAtPower one;
    const auto power = std::from_chars(at, end, one.power);
    const bool has_mark = power.ec == std::errc() && power.ptr != end && *power.ptr == ':';
    const auto share = has_mark ? std::from_chars(power.ptr + 1, end, one.share) : power;
    if (!has_mark || share.ec != std::errc() || !(one.share >= 0 && one.share <= 1) ||
        (share.ptr != end && *share.ptr != ' ')) {
      throw RequestError("\"" + text + "\" is no place: give POWER:SHARE, such as 3000:1 2500:0.98");
    }
    place.push_back(one);
    at = share.ptr == end ? end : share.ptr + 1;
  }
  return place;
}

std::vector<line::Place> places_in(const Json& request, const char* field) {
  std::vector<line::Place> places;
  for (const auto& text : request.value(field, Json::array())) {
    places.push_back(place_from(text.get<std::string>()));
  }
  return places;
}

Json choose_power(const Json& request) {
  const auto choice = line::choose_power(places_in(request, "must"), places_in(request, "must_not"));
  return {{"power", choice.power.has_value() ? Json(*choice.power) : Json(nullptr)}, {"text", choice.text}};
}

// Empty when the text is none.
std::vector<std::uint8_t> epc_from(std::string_view text) {
  std::vector<std::uint8_t> epc(text.size() / 2);
  for (std::size_t i = 0; i < epc.size(); ++i) {
    const char* const end = text.data() + 2 * i + 2;
    if (const auto byte = std::from_chars(end - 2, end, epc[i], 16); byte.ec != std::errc() || byte.ptr != end) {
      return {};
    }
  }
  return text.size() % 2 == 0 ? epc : std::vector<std::uint8_t>();
}

Json card_forms(const Json& request) {
  const auto text = request["epc"].get<std::string>();
  const auto epc = epc_from(text);
  const auto printed = request["printed"].get<std::string>();
  const auto number = why::printed_number(printed);
  if (epc.empty()) {
    throw RequestError("\"" + text + "\" is no EPC: hexadecimal bytes");
  }
  if (!number.has_value()) {
    throw RequestError("\"" + printed + "\" is no number of a card: such as 0012345678, 123,45678 or 0x21AB");
  }
  Json forms = Json::array();
  for (const auto& form : why::forms_that_make(epc, *number)) {
    forms.push_back({{"identification_bits", form.identification_bits},
                     {"reader_type", form.reader_type},
                     {"card", std::to_string(form.card)}});
  }
  return {{"forms", forms}};
}

}  // namespace

std::vector<ControlCommand> power_commands(const ControlledRadio& radio) {
  return {
      {"try_power",
       {{"power", Type::integer, false}, {"seconds", Type::integer, false}, {"measure", Type::integer, false}},
       [radio](const Json& request, ControlStream&) { return try_power(radio, request); }},
      {"choose_power",
       {{"must", Type::texts}, {"must_not", Type::texts}},
       [](const Json& request, ControlStream&) { return choose_power(request); }},
      {"watch_field",
       {},
       [radio](const Json&, ControlStream& stream) {
         return follow_field(needed(radio.line), radio.settings, radio.sightings, stream);
       }},
      {"card_forms", {{"epc"}, {"printed"}}, [](const Json& request, ControlStream&) { return card_forms(request); }},
  };
}

}  // namespace achost
