#include "door/cli/journal_lines.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <map>
#include <nlohmann/json.hpp>
#include <string_view>

#include "door/base/door_words.h"
#include "door/base/local_time.h"
#include "door/cli/csv_cell.h"
#include "door/cli/health_line.h"
#include "door/journal/changes.h"
#include "door/journal/entry_code.h"
#include "refhost/log_entry.h"
#include "refhost/store_report.h"

namespace achost {
namespace {

using refhost::grouped;
using refhost::log::escape;

std::string text_in(const Entry& entry, std::string_view name) {
  for (const auto& [field, value] : entry.fields) {
    if (field == name) {
      const auto* const text = std::get_if<std::string>(&value);
      return text != nullptr ? *text : std::to_string(std::get<std::int64_t>(value));
    }
  }
  return "";
}

std::int64_t entry_number(const Entry& entry, std::string_view name) {
  for (const auto& [field, value] : entry.fields) {
    if (field == name && std::holds_alternative<std::int64_t>(value)) {
      return std::get<std::int64_t>(value);
    }
  }
  return 0;
}

// "Ana (7)", "user 7", or somebody whom nobody knows.
std::string user_in(const Entry& entry, const JournalStyle& style, const char* otherwise = "somebody") {
  if (!entry.user.has_value()) {
    return otherwise;
  }
  const std::string number = std::to_string(*entry.user);
  const std::string name = escape(style.name_of(*entry.user));
  return name.empty() ? "user " + number : name + " (" + number + ")";
}

std::string card_in(const Entry& entry, const JournalStyle& style) {
  if (!entry.card.has_value()) {
    return "a card";
  }
  const std::string digits = std::to_string(*entry.card);
  return "card " + (style.shows_cards ? digits : refhost::log::mask_digits(digits));
}

// "root", or for whom a gateway has asked: "ana (achost-web)".
std::string maker_in(const Entry& entry) {
  const std::string name = escape(text_in(entry, "by"));
  const std::string uid = text_in(entry, "by_uid");
  const std::string behalf = escape(text_in(entry, "on_behalf_of"));
  const std::string maker = !name.empty() ? name : uid.empty() ? "the device" : "uid " + uid;
  return behalf.empty() ? maker : behalf + " (" + maker + ")";
}

// All that an entry has to say that no sentence is made for: "change=made name=Ana".
std::string rest_of(const Entry& entry, std::string_view without = "") {
  std::string text;
  for (const auto& [name, value] : entry.fields) {
    if (name != "by" && name != "by_uid" && name != "on_behalf_of" && name != without) {
      text += (text.empty() ? "" : " ") + name + "=" + escape(text_in(entry, name));
    }
  }
  return text;
}

std::string with_reason(const Entry& entry, const char* field) {
  const std::string reason = escape(text_in(entry, field));
  return reason.empty() ? "" : ": " + reason;
}

Sentence identification(const Entry& entry, const JournalStyle& style) {
  static const std::map<std::string, const char*> kRefusals = {
      {"unknown", "was refused: it is nobody's"},
      {"blocked", "was refused: who has it is blocked"},
      {"not_yet_valid", "was refused: the time of who has it has not come"},
      {"no_longer_valid", "was refused: the time of who has it is over"},
      {"held_back", "held back: a card is being enrolled"},
      {"door_locked", "was refused: the door is locked"},
      {"mode_awaited", "was refused: the stored operation mode is not in force yet"},
      {"still_here", "has opened already, and is still here"},
      {"outside_schedule", "was refused: the schedule of who has it is shut"},
      {"too_soon_after_entry", "was refused: who has it came in too short a time ago"},
      {"clock_untrusted", "was refused: the clock is not to be trusted, and who has it has a rule of time"},
      {"failed", "was refused: the users cannot be read"},
      {"journal_unwritable", "was refused: the journal cannot be written"}};
  const std::string outcome = text_in(entry, "outcome");
  if (outcome == "opens") {
    return {user_in(entry, style), "came in with " + card_in(entry, style)};
  }
  const auto found = kRefusals.find(outcome);
  const std::string what = found == kRefusals.end() ? escape(outcome) : found->second;
  return {user_in(entry, style), card_in(entry, style) + " " + what};
}

Sentence opening(const Entry& entry, const JournalStyle&) { return {"door", "opens" + with_reason(entry, "reason")}; }

Sentence closing(const Entry&, const JournalStyle&) { return {"door", "closes"}; }

Sentence exit_request(const Entry&, const JournalStyle&) { return {"somebody", "wants to leave"}; }

Sentence enrollment(const Entry& entry, const JournalStyle& style) {
  static const std::map<std::string, std::string> kOutcomes = {
      {"timeout", "got no card: none came in time"}, {"given_up", "got no card"}, {"failed", "got no card"}};
  const std::string outcome = text_in(entry, "outcome");
  if (outcome == "done") {
    return {user_in(entry, style), "was given " + card_in(entry, style)};
  }
  const auto found = kOutcomes.find(outcome);
  return {user_in(entry, style),
          (found == kOutcomes.end() ? escape(outcome) : found->second) + with_reason(entry, "reason")};
}

Sentence user_change(const Entry& entry, const JournalStyle& style) {
  return {maker_in(entry), escape(text_in(entry, "change")) + " " + user_in(entry, style, "people") +
                               with_reason({.fields = {{"rest", rest_of(entry, "change")}}}, "rest")};
}

Sentence card_change(const Entry& entry, const JournalStyle& style) {
  const std::string user = entry.user.has_value() ? " of " + user_in(entry, style) : "";
  return {maker_in(entry), escape(text_in(entry, "change")) + " " + card_in(entry, style) + user};
}

Sentence schedule_change(const Entry& entry, const JournalStyle&) {
  return {maker_in(entry), text_of_schedule_change(entry)};
}

Sentence setting_change(const Entry& entry, const JournalStyle&) {
  const auto shown = [&](const char* field) {
    const std::string value = escape(text_in(entry, field));
    return value.empty() ? "nothing" : value;
  };
  return {maker_in(entry), "set " + escape(text_in(entry, "setting")) + " to " + shown("value") + " (was " +
                               shown("previous_value") + ")"};
}

Sentence reader_state(const Entry& entry, const JournalStyle&) {
  return {"reader", escape(text_in(entry, "state")) + with_reason(entry, "cause")};
}

Sentence alarm(const Entry& entry, const JournalStyle&) {
  const bool is_over = text_in(entry, "state") == "over";
  return {"alarm " + escape(text_in(entry, "name")), (is_over ? "over: " : "") + escape(text_in(entry, "text"))};
}

Sentence start(const Entry& entry, const JournalStyle&) {
  const bool is_first = text_in(entry, "run_before") == "ended";
  return {"achost", "begins, version " + escape(text_in(entry, "version")) +
                        (is_first ? "" : "; the run before " + escape(text_in(entry, "run_before")))};
}

Sentence end(const Entry& entry, const JournalStyle&) {
  return {"achost", "ends" + with_reason(entry, "reason") + " (status " + text_in(entry, "status") + ")"};
}

Sentence clock_jump(const Entry& entry, const JournalStyle&) {
  std::array<char, 64> text{};
  const double seconds = static_cast<double>(entry_number(entry, "by_ms")) / 1000;
  std::snprintf(text.data(), text.size(), "was set %s by %.1f s", seconds < 0 ? "back" : "forward",
                seconds < 0 ? -seconds : seconds);
  return {"clock", text.data()};
}

Sentence gap(const Entry& entry, const JournalStyle&) {
  const auto lost = entry_number(entry, "lost");
  return {"journal", (lost == 0   ? "may lack entries"
                      : lost == 1 ? "lacks an entry"
                                  : "lacks " + grouped(lost) + " entries") +
                         with_reason(entry, "reason")};
}

Sentence retention(const Entry& entry, const JournalStyle&) {
  return {"journal", "let entries " + grouped(entry_number(entry, "first")) + " to " +
                         grouped(entry_number(entry, "last")) + " go"};
}

Sentence sighting(const Entry& entry, const JournalStyle& style) {
  const auto polls = entry_number(entry, "polls");
  std::array<char, 96> text{};
  std::snprintf(text.data(), text.size(), "was in the field for %.1f s, read %s",
                static_cast<double>(entry_number(entry, "last") - entry_number(entry, "first")) / 1000,
                polls == 1 ? "once" : (grouped(polls) + " times").c_str());
  return {card_in(entry, style), std::string(text.data()) + (entry_number(entry, "goes_on") != 0 ? ", and stays" : "")};
}

Sentence audit(const Entry& entry, const JournalStyle&) {
  return {"audit log", "record " + text_in(entry, "audit") + " (" + escape(text_in(entry, "type")) + ")"};
}

Sentence refusal(const Entry& entry, const JournalStyle&) {
  return {"door", "stays shut" + with_reason(entry, "reason")};
}

Sentence disagreement(const Entry& entry, const JournalStyle& style) {
  return {"second opinion", card_in(entry, style) + " " + escape(text_in(entry, "text"))};
}

Sentence contact(const Entry& entry, const JournalStyle&) {
  return {"door", escape(contact_words(text_in(entry, "state")))};
}

Sentence mode(const Entry& entry, const JournalStyle&) {
  return {"door", escape(mode_words(text_in(entry, "mode"), text_in(entry, "asked")))};
}

Sentence command(const Entry& entry, const JournalStyle& style) {
  static const std::map<std::string, const char*> kWords = {{"open", "opened the door by command"},
                                                            {"exit", "pressed the exit button by command"},
                                                            {"borrow", "borrowed the reader"},
                                                            {"restore", "put a backup in place of what is stored"}};
  const std::string what = text_in(entry, "what");
  const std::string maker = maker_in(entry);
  if (const auto found = kWords.find(what); found != kWords.end()) {
    return {maker, found->second};
  }
  if (what == "enroll") {
    return {maker, "began an enrollment for " + user_in(entry, style)};
  }
  if (what == "try_power") {
    return {maker, "tries powers, first " + text_in(entry, "power")};
  }
  if (what == "line") {
    return {maker, "set line " + text_in(entry, "line") + " to " + text_in(entry, "value")};
  }
  if (what == "desired") {
    return {maker, "brought revision " + text_in(entry, "revision") + " of what the door is to be like"};
  }
  if (what == "relay_test") {
    return {maker, "tried relay " + text_in(entry, "relay")};
  }
  return {maker, "told the door to be " + escape(what) + " for " + duration_text(entry_number(entry, "seconds"))};
}

// By number of the kind.
constexpr Sentence (*kSentences[])(const Entry&, const JournalStyle&) = {
    identification, opening, closing,      exit_request, enrollment, user_change, card_change,    setting_change,
    reader_state,   alarm,   start,        end,          clock_jump, gap,         retention,      sighting,
    audit,          refusal, disagreement, contact,      mode,       command,     schedule_change};
static_assert(std::size(kSentences) == kKinds.size());

// The time as it was there and then.
std::string time_of(const JournalEntry& entry, const char* format) {
  const auto seconds = static_cast<std::time_t>(entry.time.wall / 1000 + entry.time.offset);
  std::tm fields{};
  gmtime_r(&seconds, &fields);
  std::array<char, 64> text{};
  std::strftime(text.data(), text.size(), format, &fields);
  return text.data();
}

const char* colour_of(const Entry& entry) {
  switch (entry.kind) {
    case Kind::identification:
      return text_in(entry, "outcome") == "opens" ? "\x1b[32m" : "\x1b[31m";
    case Kind::alarm:
    case Kind::gap:
      return "\x1b[31m";
    case Kind::closing:
    case Kind::audit:
      return "\x1b[2m";
    default:
      return "";
  }
}

void pad(std::string& text, std::size_t length, std::size_t width) {
  text.append(std::max(length, width) - length, ' ');
}

// Of letters; their bytes may be more.
std::size_t length_of(std::string_view text) {
  std::size_t length = 0;
  for (const char c : text) {
    length += (static_cast<unsigned char>(c) & 0xc0) == 0x80 ? 0 : 1;
  }
  return length;
}

}  // namespace

Sentence sentence_of(const Entry& entry, const JournalStyle& style) {
  return kSentences[static_cast<std::size_t>(entry.kind) - 1](entry, style);
}

std::string JournalLines::heading() const {
  return style_.form == JournalForm::csv ? "number,time,kind,user,card,text,fields,clock_trusted,monotonic_ms,boot\r\n"
                                         : "";
}

void JournalLines::append(std::string& text, const JournalEntry& entry) {
  switch (style_.form) {
    case JournalForm::csv:
      return append_csv(text, entry);
    case JournalForm::json:
      return append_json(text, entry);
    default:
      return append_diary(text, entry);
  }
}

void JournalLines::append_diary(std::string& text, const JournalEntry& entry) {
  constexpr std::size_t kWho = 20;
  if (style_.form == JournalForm::diary) {
    if (auto day = time_of(entry, "%A, %Y-%m-%d"); day != day_) {
      text += (day_.empty() ? "" : "\n") + day + "\n";
      day_ = std::move(day);
    }
    text += time_of(entry, "%a %H:%M:%S");
  } else {
    text += time_of(entry, "%Y-%m-%d %a %H:%M:%S");
  }
  text += entry.time.is_trusted ? "  " : "? ";
  const auto [who, what] = sentence_of(entry.entry, style_);
  const char* const colour = style_.has_colour ? colour_of(entry.entry) : "";
  text += colour;
  text += who;
  pad(text, length_of(who), kWho);
  text += "  " + what;
  text += *colour == '\0' ? "\n" : "\x1b[0m\n";
}

void JournalLines::append_csv(std::string& text, const JournalEntry& entry) const {
  const auto& [kind, user, card, fields] = entry.entry;
  const auto [who, what] = sentence_of(entry.entry, style_);
  text += std::to_string(entry.number) + "," + iso_time(entry.time.wall, entry.time.offset) + "," +
          std::string(name_of(kind)) + "," + (user.has_value() ? std::to_string(*user) : "") + "," +
          (card.has_value() ? std::to_string(*card) : "") + ",";
  append_cell(text, who + " " + what);
  text += ',';
  append_cell(text, json_of_fields(fields));
  text += std::string(entry.time.is_trusted ? ",1," : ",0,") + std::to_string(entry.time.monotonic) + ",";
  append_cell(text, entry.boot);
  text += "\r\n";
}

void JournalLines::append_json(std::string& text, const JournalEntry& entry) const {
  using Object = nlohmann::ordered_json;
  const auto& [kind, user, card, fields] = entry.entry;
  Object object = {
      {"number", entry.number}, {"time", iso_time(entry.time.wall, entry.time.offset)}, {"kind", name_of(kind)}};
  if (user.has_value()) {
    object["user"] = *user;
  }
  if (card.has_value()) {
    object["card"] = *card;
  }
  object["fields"] = Object::parse(json_of_fields(fields));
  object["clock_trusted"] = entry.time.is_trusted;
  object["monotonic_ms"] = entry.time.monotonic;
  object["boot"] = entry.boot;
  text += object.dump(-1, ' ', false, Object::error_handler_t::replace) + "\n";
}

}  // namespace achost
