#include "gateway/fleet/document.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "cli/failure.h"
#include "door/base/csv.h"
#include "door/base/encoding.h"
#include "door/services/people_text.h"
#include "door/services/schedule_text.h"
#include "gateway/fleet/json.h"

namespace fleet {
namespace {

// What is not said of a user is nothing: a short line, and the same one for the same user.
std::string user_line(const achost::User& user, const std::vector<std::uint64_t>& cards) {
  Json line = {{"user", user.id}};
  if (!user.name.empty()) {
    line["name"] = user.name;
  }
  for (const auto& [key, number] : {std::pair("from", user.from), std::pair("until", user.until)}) {
    if (number != 0) {
      line[key] = number;
    }
  }
  if (user.blocked) {
    line["blocked"] = true;
  }
  if (!user.schedule.empty()) {
    line["schedule"] = user.schedule;
  }
  if (user.pause != 0) {
    line["pause"] = user.pause;
  }
  line["cards"] = Json::array();
  for (const auto card : cards) {
    line["cards"].push_back(std::to_string(card));
  }
  return line_of(line);
}

[[noreturn]] void refuse(const std::string& line) {
  constexpr std::size_t kShown = 60;
  throw cli::Failure(cli::kFailed, "the broker has what is no part of a door's desired state: " +
                                       achost::in_quotes(line.substr(0, kShown)) +
                                       ": push all of it again, with --anew");
}

void add_line(Document& document, const std::string& line) {
  const Json object = object_of(line);
  if (const auto user = number_in(object, "user")) {
    document.users[*user] = line;
  } else if (value_in(object, "schedule").is_string()) {
    (document.schedules.has_value() ? *document.schedules : document.schedules.emplace()).insert(line);
  } else if (flag_in(object, "remove_schedules")) {
    document.schedules.emplace();
  } else if (const auto setting = text_in(object, "setting"); !setting.empty()) {
    document.settings[setting] = line;
  } else if (!flag_in(object, "remove_users")) {
    refuse(line);
  }
}

// Each line of the text but its newline, with its number.
template <typename Take>
void each_line(std::string_view text, const Take& take) {
  for (std::size_t number = 1; !text.empty(); ++number) {
    const auto end = std::min(text.find('\n'), text.size());
    take(text.substr(0, end), number);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

}  // namespace

std::map<std::int64_t, std::string> user_lines(std::string_view text, const std::string& name) {
  const auto import = achost::parse_people(text, name);
  std::map<std::int64_t, std::vector<std::uint64_t>> cards;
  for (const auto& card : import.cards) {
    cards[card.user].push_back(card.value);
  }
  std::map<std::int64_t, std::string> lines;
  for (const auto& user : import.users) {
    auto& own = cards[user.change.id];
    std::ranges::sort(own);
    lines[user.change.id] = user_line(achost::changed(nullptr, false, user.change), own);
  }
  return lines;
}

std::set<std::string> schedule_lines(std::string_view text, const std::string& name) {
  // Through the schedules themselves: what says the same in other words becomes the same lines.
  const std::string table = achost::schedules_as_text(achost::parse_schedules(text, name));
  achost::CsvReader reader(table);
  std::vector<std::string> cells;
  reader.next(cells);  // the heading
  std::set<std::string> lines;
  while (reader.next(cells)) {
    lines.insert(line_of({{"schedule", achost::from_safe_cell(cells.at(0))},
                          {"days", cells.at(1)},
                          {"from", cells.at(2)},
                          {"to", cells.at(3)}}));
  }
  return lines;
}

std::map<std::string, std::string> setting_lines(std::string_view text, const std::string& name) {
  std::map<std::string, std::string> lines;
  each_line(achost::utf8_text(text, name), [&](std::string_view line, std::size_t number) {
    line = achost::without_blanks(line.substr(0, line.find('\r')));
    if (line.empty() || line.starts_with('#')) {
      return;
    }
    const auto equals = line.find('=');
    std::string key(achost::without_blanks(line.substr(0, equals)));
    if (equals == line.npos || key.empty()) {
      achost::refuse_line(name, number, achost::in_quotes(line) + " is no setting: give SECTION.KEY=VALUE");
    }
    key = key.find('.') == std::string::npos ? "uhf." + key : key;
    const std::string value(achost::without_blanks(line.substr(equals + 1)));
    if (!lines.try_emplace(key, line_of({{"setting", key}, {"value", value}})).second) {
      achost::refuse_line(name, number, key + " is set in a line before already: give it once");
    }
  });
  return lines;
}

void add_lines(Document& document, std::string_view lines) {
  each_line(lines, [&](std::string_view line, std::size_t) {
    if (!line.empty()) {
      add_line(document, std::string(line));
    }
  });
}

void check_schedules(const Document& document) {
  if (!document.schedules.has_value()) {
    return;  // the door knows
  }
  std::set<std::string> names;
  for (const auto& line : *document.schedules) {
    names.insert(text_in(object_of(line), "schedule"));
  }
  for (const auto& [id, line] : document.users) {
    const auto schedule = text_in(object_of(line), "schedule");
    if (!schedule.empty() && !names.contains(schedule)) {
      throw cli::Failure(cli::kUsage, "user " + std::to_string(id) + " has the schedule " +
                                          achost::in_quotes(schedule) +
                                          ", which is not there: give it with --schedules");
    }
  }
}

}  // namespace fleet
