#include "door/services/event.h"

#include <algorithm>
#include <array>
#include <map>
#include <utility>

#include "ac/config_util.h"
#include "door/base/door_words.h"
#include "door/base/gpio_plan.h"
#include "door/base/local_time.h"
#include "door/services/door_service.h"
#include "refhost/audit_log.h"
#include "refhost/log_entry.h"
#include "refhost/relays.h"

namespace achost {

namespace {

using refhost::log::escape;
using Weight = Event::Weight;

// The event without its time, which is the same for all.
using Maker = std::optional<Event> (*)(const ac::Message& message);

int number(const ac::Message& message, const char* field) {
  int value = 0;
  message.get_int(field, &value);
  return value;
}

std::int64_t long_number(const ac::Message& message, const char* field) {
  std::int64_t value = 0;
  message.get_int64(field, &value);
  return value;
}

std::string text(const ac::Message& message, const char* field) {
  std::string value;
  message.get_string(field, &value);
  return value;
}

std::uint64_t card_of(const ac::Message& message, const char* field) {
  return static_cast<std::uint64_t>(long_number(message, field));
}

std::string user_text(const ac::Message& message) {
  return named(long_number(message, "user_id"), text(message, "user_name"));
}

Event event(const char* name, std::string subject, std::string words, Weight weight, nlohmann::ordered_json fields) {
  return {.time = {},
          .name = name,
          .subject = std::move(subject),
          .text = std::move(words),
          .weight = weight,
          .fields = std::move(fields)};
}

std::optional<Event> identification(const ac::Message& message) {
  const std::uint64_t card = card_of(message, "value");
  const std::string outcome = text(message, "outcome");
  nlohmann::ordered_json fields = {{"card", card},
                                   {"card_hex", hexadecimal(card)},
                                   {"device_id", long_number(message, "device_id")},
                                   {"uuid", text(message, "uuid")},
                                   {"outcome", outcome}};
  std::int64_t user = 0;
  const bool known = message.get_int64("user_id", &user);
  if (known) {
    fields["user_id"] = user;
    if (std::string name; message.get_string("user_name", &name)) {
      fields["user_name"] = name;
    }
  }
  const std::map<std::string, std::pair<std::string, Weight>> outcomes = {
      {"opens", {"welcome, " + user_text(message), Weight::good}},
      {"unknown", {"refused, nobody's card", Weight::bad}},
      {"blocked", {"refused, " + user_text(message) + " is blocked", Weight::bad}},
      {"not_yet_valid", {"refused, the time of " + user_text(message) + " has not come", Weight::bad}},
      {"no_longer_valid", {"refused, the time of " + user_text(message) + " is over", Weight::bad}},
      {"held_back", {"held back, a card is being enrolled", Weight::plain}},
      {"door_locked", {"refused, the door is locked", Weight::bad}},
      {"mode_awaited", {"held back, the stored operation mode is not in force yet", Weight::bad}},
      {"still_here", {"still here, has opened already", Weight::dim}},
      {"outside_schedule", {"refused, the schedule of " + user_text(message) + " is shut", Weight::bad}},
      {"too_soon_after_entry", {"refused, " + user_text(message) + " came in too short a time ago", Weight::bad}},
      {"clock_untrusted", {"refused, the clock is not to be trusted", Weight::bad}},
      {"failed", {"refused, the users cannot be read", Weight::bad}},
      {"journal_unwritable", {"refused, the journal cannot be written", Weight::bad}}};
  const auto found = outcomes.find(outcome);
  const auto& [words, weight] = found == outcomes.end() ? std::pair(escape(outcome), Weight::plain) : found->second;
  return event("identification", named_card(card), words, weight, std::move(fields));
}

std::string door_text(const ac::Message& message) { return "door " + std::to_string(number(message, "id")); }

std::optional<Event> door_open(const ac::Message& message) {
  if (number(message, "open") == 0) {
    return std::nullopt;  // its relay tells
  }
  const int reason = number(message, "reason");
  const std::string words = text_of(static_cast<DoorReason>(reason));
  return event("door_open", door_text(message), "opens: " + words, Weight::good,
               {{"door", number(message, "id")}, {"reason", words}});
}

std::optional<Event> door_contact(const ac::Message& message) {
  const std::string state = text(message, "state");
  const bool is_good = state == "opened" || state == "closed";
  const Weight weight = is_good ? Weight::dim : state == "not_used" ? Weight::plain : Weight::bad;
  return event("door_contact", door_text(message), escape(contact_words(state)), weight,
               {{"door", number(message, "id")}, {"state", state}});
}

std::optional<Event> door_mode(const ac::Message& message) {
  const std::string mode = text(message, "mode");
  const std::string by = text(message, "by");
  return event("door_mode", door_text(message), escape(mode_words(mode, by)), Weight::plain,
               {{"door", number(message, "id")}, {"mode", mode}, {"by", by}});
}

// fields: what it has beside the user.
Event enrollment(const ac::Message& message, std::string words, Weight weight, nlohmann::ordered_json fields) {
  fields["user_id"] = long_number(message, "user_id");
  if (std::string name; message.get_string("user_name", &name)) {
    fields["user_name"] = name;
  }
  return event("enrollment", "enrollment", std::move(words), weight, std::move(fields));
}

// " for Ana (4)", where it is known whose it was to be.
std::string for_user(const ac::Message& message) {
  return long_number(message, "user_id") == 0 ? "" : " for " + user_text(message);
}

std::optional<Event> enrollment_begun(const ac::Message& message) {
  return enrollment(message, "waits for a card of " + user_text(message), Weight::plain, {{"state", "started"}});
}

std::optional<Event> enrollment_done(const ac::Message& message) {
  const std::uint64_t card = card_of(message, "user_card");
  return enrollment(message, named_card(card) + " is now of " + user_text(message), Weight::good,
                    {{"state", "done"}, {"card", card}, {"card_hex", hexadecimal(card)}});
}

std::optional<Event> enrollment_late(const ac::Message& message) {
  std::string reason;
  if (message.get_string("reason", &reason)) {
    return enrollment(message, "given up" + for_user(message) + ": " + escape(reason), Weight::bad,
                      {{"state", "given_up"}, {"reason", reason}});
  }
  return enrollment(message, "no card came in time" + for_user(message), Weight::bad, {{"state", "timeout"}});
}

std::optional<Event> enrollment_failed(const ac::Message& message) {
  const std::map<int, std::string> words = {{1, "the card is somebody's already"},
                                            {5, "the server answers too late"},
                                            {6, "the server cannot be reached"},
                                            {8, "the time for the card is over"},
                                            {9, "another enrollment runs"}};
  const int error = number(message, "error");
  const auto found = words.find(error);
  std::string reason = found == words.end() ? "error " + std::to_string(error) : found->second;
  message.get_string("reason", &reason);  // whoever says more than a number
  return enrollment(message, "failed" + for_user(message) + ": " + escape(reason), Weight::bad,
                    {{"state", "error"}, {"error", error}, {"reason", reason}});
}

std::optional<Event> line_changed(const ac::Message& message) {
  const int line = number(message, "gpio");
  const int value = number(message, "value");
  for (int relay = refhost::kFirstRelay; relay <= refhost::kLastRelay; ++relay) {
    if (ac::config_util::relay_gpio(relay) == line) {
      return event("relay", "relay " + std::to_string(relay), value != 0 ? "on" : "off", Weight::dim,
                   {{"relay", relay}, {"on", value != 0}, {"gpio", line}});
    }
  }
  return event("gpio", line < kFirstNamedLine ? "input " + std::to_string(line) : gpio_line_name(line),
               std::to_string(value), Weight::plain, {{"gpio", line}, {"value", value}});
}

std::string shown(const std::string& value) { return value.empty() ? "nothing" : escape(value); }

std::optional<Event> setting_changed(const ac::Message& message) {
  std::string module = "system";
  message.get_string("module", &module);
  const std::string key = text(message, "param");
  const std::string value = text(message, "value");
  const std::string previous = text(message, "previous_value");
  return event("config", "setting " + escape(module + "." + key), shown(previous) + " becomes " + shown(value),
               Weight::plain, {{"module", module}, {"key", key}, {"value", value}, {"previous_value", previous}});
}

std::optional<Event> second_opinion(const ac::Message& message) {
  const std::uint64_t card = card_of(message, "value");
  return event("second_opinion", named_card(card), escape(text(message, "text")), Weight::bad,
               {{"card", card}, {"card_hex", hexadecimal(card)}, {"text", text(message, "text")}});
}

std::optional<Event> record_written(const ac::Message& message) {
  const auto type = static_cast<std::size_t>(number(message, "type"));
  const std::string label = std::string(type < std::size(refhost::kAuditTypes) ? refhost::kAuditTypes[type] : "?");
  return event("audit", "audit record " + std::to_string(long_number(message, "id")),
               label + ": " + escape(text(message, "details")), Weight::dim,
               {{"id", long_number(message, "id")},
                {"type", label},
                {"details", text(message, "details")},
                {"recorded", text(message, "time")}});
}

std::optional<Event> alarm(const ac::Message& message) {
  const bool stands = number(message, "standing") != 0;
  const std::string what = text(message, "text");
  return event("alarm", "alarm " + escape(text(message, "name")), stands ? escape(what) : "over: " + escape(what),
               stands ? Weight::bad : Weight::good,
               {{"name", text(message, "name")}, {"text", what}, {"standing", stands}});
}

std::optional<Event> reader_state(const ac::Message& message) {
  const std::string state = text(message, "state");
  const std::string cause = text(message, "cause");
  const std::string way_out = text(message, "way_out");
  const Weight weight = state == "answering" ? Weight::good : state == "lent" ? Weight::plain : Weight::bad;
  return event("reader", "reader " + escape(state),
               state == "answering" ? "it reads again" : escape(cause + (way_out.empty() ? "" : "; " + way_out)),
               weight, {{"state", state}, {"cause", cause}, {"way_out", way_out}});
}

std::optional<Event> reader_recovery(const ac::Message& message) {
  return event("recovery", "reader", escape(text(message, "text")), Weight::dim, {{"text", text(message, "text")}});
}

std::optional<Event> departure(const ac::Message& message) {
  const std::uint64_t card = card_of(message, "value");
  const auto stay = long_number(message, "seconds");
  return event("departure", named_card(card), "has left, after " + text_of_pause(stay), Weight::dim,
               {{"card", card}, {"card_hex", hexadecimal(card)}, {"seconds", stay}});
}

const std::map<std::string, Maker>& makers() {
  static const auto& table = *new std::map<std::string, Maker>{
      {"identifier_decision", identification}, {"door_state", door_open},
      {"door_contact", door_contact},          {"door_mode", door_mode},
      {"enroller_waits", enrollment_begun},    {"enroll_rfid_successful", enrollment_done},
      {"enroll_timeout", enrollment_late},     {"enroller_error", enrollment_failed},
      {"gpio_notified", line_changed},         {"config_param_set", setting_changed},
      {"audit_log_created", record_written},   {"alarm", alarm},
      {"second_opinion", second_opinion},      {"reader_state", reader_state},
      {"reader_recovery", reader_recovery},    {"card_left", departure}};
  return table;
}

// The text with the last four digits of the event's card, as the log masks it. Its hexadecimal digits would tell more.
std::string without_card(std::string words, const nlohmann::ordered_json& fields) {
  if (fields.contains("card")) {
    const auto card = fields.at("card").get<std::uint64_t>();
    const std::string full = named_card(card);
    std::string masked = "card " + refhost::log::mask_digits(std::to_string(card));
    if (const auto place = words.find(full); place != std::string::npos) {
      masked.resize(std::max(masked.size(), place == 0 ? full.size() : 0), ' ');
      words.replace(place, full.size(), masked);
    }
  }
  return words;
}

// The terminal's colours.
const char* colour_of(Weight weight) {
  constexpr std::array kColours = {"\x1b[1;32m", "\x1b[1;31m", "", "\x1b[2m"};
  return kColours.at(static_cast<std::size_t>(weight));
}

}  // namespace

std::vector<std::string> Event::message_types() {
  std::vector<std::string> types;
  for (const auto& [type, maker] : makers()) {
    types.push_back(type);
  }
  return types;
}

std::optional<Event> Event::from(const ac::Message& message, std::chrono::system_clock::time_point time) {
  auto result = makers().at(message.type())(message);
  if (result.has_value()) {
    result->time = time;
  }
  return result;
}

std::string Event::line(bool colour, bool show_cards) const {
  // Wide enough for a card of the usual 32 bits, so that the texts stand below one another.
  constexpr std::size_t kSubjectWidth = 30;
  const std::string padding(subject.size() < kSubjectWidth ? kSubjectWidth - subject.size() : 1, ' ');
  const std::string words = show_cards ? subject + padding + text : without_card(subject + padding + text, fields);
  const char* const begin = colour_of(weight);
  return local_time(std::chrono::floor<std::chrono::milliseconds>(time), "%H:%M:%S.%L") + "  " +
         (colour && *begin != '\0' ? begin + words + "\x1b[0m" : words);
}

std::string Event::json() const {
  nlohmann::ordered_json object = {{"event", name},
                                   {"time", iso_time(std::chrono::floor<std::chrono::milliseconds>(time))}};
  object.update(fields);
  return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace achost
