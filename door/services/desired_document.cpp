#include "door/services/desired_document.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "door/base/assignment.h"
#include "door/base/encoding.h"
#include "door/base/failure.h"
#include "door/base/json_value.h"
#include "door/services/people_rows.h"

namespace achost {
namespace {

using nlohmann::json;

constexpr std::size_t kLongestLine = std::size_t{1} << 20;
constexpr std::size_t kLargestDocument = std::size_t{256} << 20;  // a million users with cards

[[noreturn]] void refuse(const std::string& text) { throw Failure(kUsage, text); }

[[noreturn]] void refuse_value(const std::string& key, const json& value, const char* way_out) {
  refuse(key + " cannot be " + in_message(value) + ": give " + way_out);
}

std::string text_at(const std::string& key, const json& value) {
  if (!value.is_string()) {
    refuse_value(key, value, "a text");
  }
  return value.get<std::string>();
}

bool flag_at(const std::string& key, const json& value) {
  if (!value.is_boolean()) {
    refuse_value(key, value, "true or false");
  }
  return value.get<bool>();
}

// 0 of null.
std::int64_t number_at(const std::string& key, const json& value) {
  if (value.is_null()) {
    return 0;
  }
  constexpr std::uint64_t kMost = std::numeric_limits<std::int64_t>::max();
  if (!value.is_number_integer() || (value.is_number_unsigned() && value.get<std::uint64_t>() > kMost) ||
      value.get<std::int64_t>() < 0) {
    refuse_value(key, value, "a whole number of 0 or more");
  }
  return value.get<std::int64_t>();
}

std::int64_t user_at(const std::string& key, const json& value) {
  const auto id = number_at(key, value);
  if (id == 0) {
    refuse_value(key, value, "a number of 1 or more");
  }
  return id;
}

std::uint64_t card_at(const json& value) {
  const auto card = value.is_string()            ? card_number(value.get<std::string>())
                    : value.is_number_unsigned() ? std::optional(value.get<std::uint64_t>())
                                                 : std::nullopt;
  if (!card.has_value()) {
    refuse_value("a card", value, "a number such as 33 or \"0x21\"");
  }
  return *card;
}

// What a line may say of its subject.
template <typename Line>
using Keys = std::map<std::string, std::function<void(Line&, const std::string& key, const json& value)>, std::less<>>;

// All that the object says; a key that is not there is as it is in a new line.
template <typename Line>
Line read_keys(const json& object, const Keys<Line>& keys) {
  Line line;
  for (const auto& [key, value] : object.items()) {
    const auto found = keys.find(key);
    if (found == keys.end()) {
      std::string all;
      for (const auto& [name, take] : keys) {
        all += (all.empty() ? "" : ", ") + name;
      }
      refuse("there is no key " + in_quotes(key) + " here: there are " + all);
    }
    found->second(line, key, value);
  }
  return line;
}

struct UserLine {
  User user;
  std::vector<std::uint64_t> cards;
};

const Keys<UserLine>& user_keys() {
  static const Keys<UserLine> kKeys = {
      {"user", [](auto& line, const auto& key, const json& value) { line.user.id = user_at(key, value); }},
      {"name", [](auto& line, const auto& key, const json& value) { line.user.name = text_at(key, value); }},
      {"from", [](auto& line, const auto& key, const json& value) { line.user.from = number_at(key, value); }},
      {"until", [](auto& line, const auto& key, const json& value) { line.user.until = number_at(key, value); }},
      {"blocked", [](auto& line, const auto& key, const json& value) { line.user.blocked = flag_at(key, value); }},
      {"schedule", [](auto& line, const auto& key, const json& value) { line.user.schedule = text_at(key, value); }},
      {"pause", [](auto& line, const auto& key, const json& value) { line.user.pause = number_at(key, value); }},
      {"cards", [](auto& line, const auto& key, const json& value) {
         if (!value.is_array()) {
           refuse_value(key, value, "a list, such as [\"33\"]");
         }
         std::ranges::transform(value, std::back_inserter(line.cards), card_at);
       }}};
  return kKeys;
}

ScheduleCells schedule_row(const json& object) {
  static const auto kCell = [](std::size_t cell) {
    return
        [cell](ScheduleCells& row, const std::string& key, const json& value) { row.at(cell) = text_at(key, value); };
  };
  static const Keys<ScheduleCells> kKeys = {
      {"schedule", kCell(0)}, {"days", kCell(1)}, {"from", kCell(2)}, {"to", kCell(3)}};
  return read_keys(object, kKeys);
}

refhost::SettingValue setting_of(const json& object) {
  struct Line {
    std::string setting;
    std::string value;
  };
  static const Keys<Line> kKeys = {
      {"setting", [](auto& line, const auto& key, const json& value) { line.setting = text_at(key, value); }},
      {"value", [](auto& line, const auto& key, const json& value) { line.value = text_at(key, value); }}};
  if (!object.contains("value")) {
    refuse("a setting without \"value\": give {\"setting\": \"SECTION.KEY\", \"value\": TEXT}");
  }
  const auto line = read_keys(object, kKeys);
  return checked_assignment(line.setting, line.value);
}

refhost::SettingValue removed_setting(const std::string& name) {
  const auto dot = std::min(name.find('.'), name.size());
  const auto& setting =
      refhost::SettingsSchema::builtin().at(name.substr(0, dot), name.substr(std::min(dot + 1, name.size())));
  return {setting.section, setting.key, ""};
}

std::int64_t id_of(const DesiredDocument::ForUser& one) { return one.user.id; }

// Of a document in its order: what it says twice.
void refuse_contradictions(const DesiredDocument& document) {
  const auto& [name, users, cards, schedules, settings, users_removed, settings_removed] = document;
  if (const auto same = std::ranges::adjacent_find(users, {}, id_of); same != users.end()) {
    refuse_line(name, std::next(same)->line,
                "user " + std::to_string(same->user.id) + " is in line " + std::to_string(same->line) +
                    " already: give each user once");
  }
  if (const auto same = std::ranges::adjacent_find(cards, {}, &DesiredDocument::ForCard::value); same != cards.end()) {
    refuse_line(name, document.line_of(std::next(same)->user),
                "card " + std::to_string(same->value) + " is given to user " + std::to_string(same->user) +
                    " in line " + std::to_string(document.line_of(same->user)) + " already: give each card once");
  }
  for (const auto id : users_removed) {
    if (const auto same = std::ranges::lower_bound(users, id, {}, id_of); same != users.end() && same->user.id == id) {
      refuse_line(name, same->line, "user " + std::to_string(id) + " is removed too: either give or remove him");
    }
  }
  std::set<std::pair<std::string, std::string>> all;
  for (const auto* const part : {&settings, &settings_removed}) {
    for (const auto& [section, key, value] : *part) {
      if (!all.emplace(section, key).second) {
        std::string text = name + ": setting ";
        text += section + "." + key + " is given twice: give it once";
        throw Failure(kUsage, text);
      }
    }
  }
}

}  // namespace

std::size_t DesiredDocument::line_of(std::int64_t user) const {
  return std::ranges::lower_bound(users, user, {}, [](const ForUser& one) { return one.user.id; })->line;
}

DesiredReader::DesiredReader(std::string name, Form form) : form_(form) { document_.name = std::move(name); }

void DesiredReader::take(std::string_view piece) {
  size_ += piece.size();
  if (size_ > kLargestDocument) {
    refuse_line(document_.name, line_ + 1, "this is too much for one document: take fewer users");
  }
  for (auto end = piece.find('\n'); end != piece.npos; end = piece.find('\n')) {
    begun_ += piece.substr(0, end);
    piece.remove_prefix(end + 1);
    take_line(begun_);
    begun_.clear();
  }
  begun_ += piece;
  if (begun_.size() > kLongestLine) {
    refuse_line(document_.name, line_ + 1, "a line of more than 1 MiB: give each user a line of his own");
  }
}

void DesiredReader::take_line(std::string_view text) try {
  ++line_;
  if (without_blanks(text).empty() || text == "\r") {
    return;
  }
  const json object = json::parse(text, nullptr, false);
  if (!object.is_object()) {
    refuse(R"(this is no JSON object: give one a line, such as {"user": 7, "name": "Ana", "cards": ["33"]})");
  }
  if (object.contains("lines") && object.size() == 1) {
    take_number_of_lines(object["lines"]);
    return;
  }
  ++lines_taken_;
  if (object.contains("user")) {
    take_user(object);
  } else if (object.contains("schedule")) {
    has_schedules_ = true;
    schedules_.take(schedule_row(object), line_);
  } else if (object.contains("setting")) {
    document_.settings.push_back(setting_of(object));
  } else {
    take_removal(object);
  }
} catch (const Failure& failure) {
  refuse_line(document_.name, line_, failure.what());
} catch (const refhost::SettingError& failure) {
  refuse_line(document_.name, line_, failure.what());
}

void DesiredReader::take_user(const json& object) {
  auto [user, cards] = read_keys(object, user_keys());
  if (const auto fault = fault_of(user); !fault.empty()) {
    refuse(fault);
  }
  for (const auto card : cards) {
    document_.cards.push_back({.value = card, .user = user.id});
  }
  document_.users.push_back({.user = std::move(user), .line = line_});
}

void DesiredReader::take_removal(const json& object) {
  const bool is_whole = form_ == Form::whole;
  const std::string removed = object.size() == 1 ? object.begin().key() : "";
  if (removed == "remove_user" && !is_whole) {
    document_.users_removed.push_back(user_at(removed, *object.begin()));
  } else if (removed == "remove_setting" && !is_whole) {
    document_.settings_removed.push_back(removed_setting(text_at(removed, *object.begin())));
  } else if (removed == "remove_users" && is_whole) {
    removes_users_ = true;
  } else if (removed == "remove_schedules") {
    has_schedules_ = true;
  } else {
    refuse(std::string(R"(this is about nothing: a line has "user", "schedule" or "setting", or alone )") +
           (is_whole ? R"("remove_users" or "remove_schedules")"
                     : R"("remove_user", "remove_setting" or "remove_schedules")"));
  }
}

void DesiredReader::take_number_of_lines(const json& value) {
  if (lines_promised_.has_value() || lines_taken_ > 0) {
    refuse("how many lines there are stands in the first line, or nowhere");
  }
  lines_promised_ = number_at("lines", value);
}

DesiredDocument DesiredReader::result() && {
  if (!begun_.empty()) {
    take_line(std::exchange(begun_, ""));
  }
  const auto promised = lines_promised_.value_or(static_cast<std::int64_t>(lines_taken_));
  if (promised != static_cast<std::int64_t>(lines_taken_)) {
    refuse_line(document_.name, line_,
                "here it ends, after " + std::to_string(lines_taken_) + " lines of " + std::to_string(promised) +
                    ": take it from where it is whole");
  }
  if (has_schedules_) {
    document_.schedules = std::move(schedules_).result();
  }
  std::ranges::stable_sort(document_.users, {}, id_of);
  std::ranges::stable_sort(document_.cards, {}, &DesiredDocument::ForCard::value);
  std::ranges::sort(document_.users_removed);
  refuse_contradictions(document_);
  if (form_ == Form::whole && document_.users.empty() != removes_users_) {
    throw Failure(
        kUsage, document_.name + (removes_users_ ? ": it names users and removes all: do either"
                                                 : ": it names no user, and all who are there would go: where this is "
                                                   "meant say {\"remove_users\": true}"));
  }
  return std::move(document_);
}

}  // namespace achost
