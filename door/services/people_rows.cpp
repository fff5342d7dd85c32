#include "door/services/people_rows.h"

#include <algorithm>
#include <utility>

#include "door/base/encoding.h"
#include "door/base/failure.h"
#include "door/base/time_of.h"

namespace achost {
namespace {

// In the order of kPeopleColumns.
enum Column : std::size_t { kId, kName, kCard, kFrom, kUntil, kBlocked, kSchedule, kPause, kRegistration, kEnrolled };

// What is wrong with a cell, without its place.
struct CellError : Failure {
  explicit CellError(const std::string& text) : Failure(kUsage, text) {}
};

// 0 of an empty cell: no limit.
std::optional<std::int64_t> limit_of(const std::optional<std::string>& cell, TimeParser parse) {
  if (!cell.has_value() || without_blanks(*cell).empty()) {
    return cell.has_value() ? std::optional(std::int64_t{0}) : std::nullopt;
  }
  const std::int64_t time = parse(std::string(without_blanks(*cell)), std::chrono::system_clock::now());
  if (time <= 0) {
    throw CellError(in_quotes(*cell) + " is before 1970: give a later time, or nothing for no limit");
  }
  return time;
}

std::optional<bool> flag_of(const std::optional<std::string>& cell) {
  if (!cell.has_value()) {
    return std::nullopt;
  }
  const auto word = without_blanks(*cell);
  if (word.empty() || word == "0" || word == "no" || word == "false") {
    return false;
  }
  if (word == "1" || word == "yes" || word == "true") {
    return true;
  }
  throw CellError("blocked cannot be " + in_quotes(*cell) + ": give 1 or 0");
}

std::optional<std::string> schedule_of(const std::optional<std::string>& cell) {
  return cell.has_value() ? std::optional(std::string(without_blanks(*cell))) : std::nullopt;
}

// 0 of an empty cell.
std::optional<std::int64_t> pause_of(const std::optional<std::string>& cell) {
  if (!cell.has_value() || without_blanks(*cell).empty()) {
    return cell.has_value() ? std::optional(std::int64_t{0}) : std::nullopt;
  }
  return seconds_of(std::string(without_blanks(*cell)));
}

std::int64_t id_of(const std::optional<std::string>& cell) {
  if (const auto id = user_number(without_blanks(cell.has_value() ? *cell : ""))) {
    return *id;
  }
  throw CellError(in_quotes(cell.value_or("")) + " is no user: give a number of 1 or more as id");
}

UserChange change_of(const PeopleCells& cells) {
  UserChange change{.id = id_of(cells[kId]),
                    .name = cells[kName],
                    .from = limit_of(cells[kFrom], time_of),
                    .until = limit_of(cells[kUntil], end_of),
                    .blocked = flag_of(cells[kBlocked]),
                    .schedule = schedule_of(cells[kSchedule]),
                    .pause = pause_of(cells[kPause])};
  if (const auto fault = fault_of(changed(nullptr, false, change)); !fault.empty()) {
    throw CellError(fault);
  }
  return change;
}

// Where what a later row says differs from the first: the name of that. Empty cells say nothing there.
template <typename Value>
bool differs(const std::optional<Value>& first, const std::optional<Value>& later) {
  return later.has_value() && *later != Value{} && first != later;
}

const char* difference(const UserChange& first, const UserChange& later) {
  return differs(first.name, later.name)           ? "name"
         : differs(first.from, later.from)         ? "from"
         : differs(first.until, later.until)       ? "until"
         : differs(first.blocked, later.blocked)   ? "blocked"
         : differs(first.schedule, later.schedule) ? "schedule"
         : differs(first.pause, later.pause)       ? "pause"
                                                   : nullptr;
}

}  // namespace

void refuse_line(const std::string& name, std::size_t line, const std::string& text) {
  throw Failure(kUsage, name + ":" + std::to_string(line) + ": " + text);
}

std::string_view utf8_text(std::string_view text, const std::string& name) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (text.starts_with(kByteOrderMark)) {
    text.remove_prefix(kByteOrderMark.size());
  }
  if (const auto end = utf8_end(text); end != text.size()) {
    refuse_line(name, static_cast<std::size_t>(std::ranges::count(text.substr(0, end), '\n')) + 1,
                "this is no UTF-8: save the file as UTF-8");
  }
  return text;
}

void PeopleRows::take(const PeopleCells& cells, std::size_t line) {
  try {
    auto change = change_of(cells);
    const std::int64_t user = change.id;
    take_user(std::move(change), line);
    take_card(cells, user, line);
  } catch (const Failure& failure) {
    refuse_line(import_.name, line, failure.what());
  }
}

void PeopleRows::take_user(UserChange change, std::size_t line) {
  const auto [place, is_new] = users_.try_emplace(change.id, import_.users.size());
  if (is_new) {
    import_.users.push_back({.change = std::move(change), .line = line});
    return;
  }
  const auto& first = import_.users[place->second];
  if (const char* const what = difference(first.change, change)) {
    throw CellError("user " + std::to_string(change.id) + " has another " + what + " in line " +
                    std::to_string(first.line) + ": give the same, or nothing, in his later lines");
  }
}

void PeopleRows::take_card(const PeopleCells& cells, std::int64_t user, std::size_t line) {
  const std::string text(without_blanks(cells[kCard].has_value() ? *cells[kCard] : ""));
  if (text.empty()) {
    return;
  }
  const auto card = card_number(text);
  if (!card.has_value()) {
    throw CellError(in_quotes(text) + " is no card: give a number such as 33 or 0x21");
  }
  const auto [place, is_new] = cards_.try_emplace(*card, import_.cards.size());
  if (!is_new) {
    const auto& first = import_.cards[place->second];
    throw CellError("card " + std::to_string(*card) + " is given to user " + std::to_string(first.user) + " in line " +
                    std::to_string(first.line) + " already: give each card once");
  }
  if (cells[kRegistration].has_value() && cells[kRegistration]->size() > kLongestRegistration) {
    throw CellError("a registration of " + std::to_string(cells[kRegistration]->size()) + " bytes: give " +
                    std::to_string(kLongestRegistration) + " at most");
  }
  std::optional<std::string> enrolled = cells[kEnrolled];
  if (enrolled.has_value() && enrolled->empty()) {
    enrolled.reset();
  }
  if (enrolled.has_value()) {
    time_of(*enrolled);  // or it is none
  }
  import_.cards.push_back({.value = *card,
                           .user = user,
                           .registration = cells[kRegistration],
                           .enrolled = std::move(enrolled),
                           .line = line});
}

}  // namespace achost
