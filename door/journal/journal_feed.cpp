#include "door/journal/journal_feed.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ac/message.h"
#include "ac/message_listener.h"
#include "refhost/audit_log.h"

namespace achost {
namespace {

std::string text_in(const ac::Message& message, const char* field) {
  std::string text;
  message.get_string(field, &text);
  return text;
}

std::int64_t number_in(const ac::Message& message, const char* field, std::int64_t otherwise = 0) {
  int number = 0;
  std::int64_t value = otherwise;
  if (message.get_int(field, &number)) {
    return number;
  }
  message.get_int64(field, &value);
  return value;
}

std::optional<Entry> closing(const ac::Message& message) {
  if (number_in(message, "open") != 0) {
    return std::nullopt;  // the door has noted that itself, before it opened
  }
  return Entry{.kind = Kind::closing, .fields = {{"door", number_in(message, "id")}}};
}

std::optional<Entry> exit_request(const ac::Message& message) {
  const bool is_pressed = number_in(message, "active", 1) == 0;
  return is_pressed ? std::optional(Entry{.kind = Kind::exit_request}) : std::nullopt;
}

Entry enrollment(const ac::Message& message, const char* outcome) {
  Entry entry = {.kind = Kind::enrollment, .fields = {{"outcome", outcome}}};
  if (const auto user = number_in(message, "user_id"); user != 0) {
    entry.user = user;
  }
  if (auto reason = text_in(message, "reason"); !reason.empty()) {
    entry.fields.emplace_back("reason", std::move(reason));
  }
  return entry;
}

std::optional<Entry> enrolled(const ac::Message& message) {
  auto entry = enrollment(message, "done");
  entry.card = static_cast<std::uint64_t>(number_in(message, "user_card"));
  return entry;
}

std::optional<Entry> enrollment_late(const ac::Message& message) {
  return enrollment(message, text_in(message, "reason").empty() ? "timeout" : "given_up");
}

std::optional<Entry> enrollment_failed(const ac::Message& message) {
  auto entry = enrollment(message, "failed");
  entry.fields.emplace_back("error", number_in(message, "error"));
  return entry;
}

std::optional<Entry> reader_state(const ac::Message& message) {
  Entry entry = {.kind = Kind::reader_state, .fields = {{"state", text_in(message, "state")}}};
  if (auto cause = text_in(message, "cause"); !cause.empty()) {
    entry.fields.emplace_back("cause", std::move(cause));
  }
  return entry;
}

std::optional<Entry> alarm(const ac::Message& message) {
  return Entry{.kind = Kind::alarm,
               .fields = {{"name", text_in(message, "name")},
                          {"state", number_in(message, "standing") != 0 ? "stands" : "over"},
                          {"text", text_in(message, "text")}}};
}

std::optional<Entry> contact(const ac::Message& message) {
  return Entry{.kind = Kind::contact, .fields = {{"state", text_in(message, "state")}}};
}

std::optional<Entry> mode(const ac::Message& message) {
  return Entry{.kind = Kind::mode, .fields = {{"mode", text_in(message, "mode")}, {"asked", text_in(message, "by")}}};
}

// The record itself tells the rest.
std::optional<Entry> audit_record(const ac::Message& message) {
  const auto type = static_cast<std::size_t>(number_in(message, "type"));
  return Entry{
      .kind = Kind::audit,
      .fields = {{"audit", number_in(message, "id")},
                 {"type", type < std::size(refhost::kAuditTypes) ? std::string(refhost::kAuditTypes[type]) : "?"}}};
}

using Reading = std::optional<Entry> (*)(const ac::Message&);

constexpr std::pair<const char*, Reading> kReadings[] = {
    {"door_state", closing},
    {"door_contact", contact},
    {"door_mode", mode},
    {"sec_box_rex_changed", exit_request},
    {"enroll_rfid_successful", enrolled},
    {"enroll_timeout", enrollment_late},
    {"enroller_error", enrollment_failed},
    {"reader_state", reader_state},
    {"alarm", alarm},
    {"audit_log_created", audit_record},
};

std::vector<ac::MessageListener> listeners(const std::function<void(const Entry&)>& note) {
  std::vector<ac::MessageListener> all;
  for (const auto& [type, read] : kReadings) {
    all.push_back({type,
                   [&note, reading = read](ac::Message* message) {
                     if (const auto entry = reading(*message)) {
                       note(*entry);
                     }
                   },
                   false});
  }
  return all;
}

}  // namespace

JournalFeed::JournalFeed(std::function<void(const Entry&)> note)
    : note_(std::move(note)), subscriber_("journal_feed", listeners(note_)) {}

}  // namespace achost
