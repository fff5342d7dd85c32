#include "gateway/fleet/change.h"

#include <map>

#include "door/services/user.h"
#include "gateway/fleet/json.h"

namespace fleet {
namespace {

std::string user_in(const std::string& line) {
  const Json user = object_of(line);
  return achost::named(number_in(user, "user").value_or(0), text_in(user, "name"));
}

// "Ana (7): name, cards".
std::string user_changed(const std::string& before, const std::string& after) {
  const Json old = object_of(before);
  const Json now = object_of(after);
  std::string what;
  for (const char* const key : {"name", "from", "until", "blocked", "schedule", "pause", "cards"}) {
    if (value_in(old, key) != value_in(now, key)) {
      what += (what.empty() ? ": " : ", ") + std::string(key);
    }
  }
  return user_in(after) + what;
}

std::string row_in(const std::string& line) {
  const Json row = object_of(line);
  std::string text;
  for (const char* const key : {"schedule", "days", "from", "to"}) {
    const std::string cell = text_in(row, key);
    text += cell.empty() ? "" : " " + cell;
  }
  return "schedule" + text;
}

std::string setting_in(const std::string& line) {
  const Json setting = object_of(line);
  return text_in(setting, "setting") + " = " + text_in(setting, "value");
}

template <typename Key>
void compare(const std::map<Key, std::string>& before, const std::map<Key, std::string>& after, Change::Counts& counts,
             std::vector<std::string>& lines, std::string (*text_of)(const std::string&),
             std::string (*changed)(const std::string&, const std::string&)) {
  for (const auto& [key, line] : after) {
    const auto old = before.find(key);
    if (old == before.end()) {
      ++counts.added;
      lines.push_back("add " + text_of(line));
    } else if (old->second != line) {
      ++counts.changed;
      lines.push_back("change " + changed(old->second, line));
    }
  }
  for (const auto& [key, line] : before) {
    if (!after.contains(key)) {
      ++counts.removed;
      lines.push_back("remove " + text_of(line));
    }
  }
}

std::map<std::string, std::string> by_themselves(const std::set<std::string>& lines) {
  std::map<std::string, std::string> all;
  for (const auto& line : lines) {
    all.emplace(line, line);
  }
  return all;
}

void append(std::string& text, const char* what, const Change::Counts& counts) {
  std::string numbers;
  for (const auto& [number, word] : {std::pair(counts.added, " added"), std::pair(counts.changed, " changed"),
                                     std::pair(counts.removed, " removed")}) {
    numbers += number == 0 ? "" : (numbers.empty() ? "" : ", ") + std::to_string(number) + word;
  }
  text += numbers.empty() ? "" : (text.empty() ? "" : "; ") + (what + numbers);
}

}  // namespace

std::string Change::text() const {
  std::string text;
  append(text, "users: ", users);
  append(text, "schedules: ", schedules);
  append(text, "settings: ", settings);
  return text.empty() ? "nothing" : text;
}

Change change_between(const Document& before, const Document& after) {
  const auto setting_changed = [](const std::string&, const std::string& line) { return setting_in(line); };
  Change change;
  compare(before.users, after.users, change.users, change.lines, user_in, user_changed);
  compare(by_themselves(before.schedules.value_or(std::set<std::string>())),
          by_themselves(after.schedules.value_or(std::set<std::string>())), change.schedules, change.lines, row_in,
          +setting_changed);
  compare(before.settings, after.settings, change.settings, change.lines, setting_in, +setting_changed);
  return change;
}

}  // namespace fleet
