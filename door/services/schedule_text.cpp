#include "door/services/schedule_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <map>
#include <optional>
#include <utility>

#include "door/base/csv.h"
#include "door/base/encoding.h"
#include "door/base/failure.h"
#include "door/services/people_rows.h"

namespace achost {
namespace {

constexpr const auto& kColumns = kScheduleColumns;
enum Column : std::size_t { kName, kDays, kFrom, kTo };

using Cells = ScheduleCells;

constexpr const char* kDaysHelp = "give days such as mon-fri, \"sat sun\" or holiday, or a date such as 2026-12-25";

[[noreturn]] void refuse(const std::string& text) { throw Failure(kUsage, text); }

std::string lower(std::string_view text) {
  std::string small(text);
  std::ranges::transform(small, small.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; });
  return small;
}

// 0 is Monday; nothing of what is no day of the week. "mon" is as good as "monday".
std::optional<unsigned> day_named(std::string_view word) {
  constexpr std::array kNames = {"monday", "tuesday", "wednesday", "thursday", "friday", "saturday", "sunday"};
  for (unsigned day = 0; day < kNames.size(); ++day) {
    if (word.size() >= 3 && std::string_view(kNames.at(day)).starts_with(word)) {
      return day;
    }
  }
  return std::nullopt;
}

// A day, a span of days such as fri-mon, or the holidays; 0 of anything else.
Days days_of_word(std::string_view word) {
  if (word == "holiday" || word == "holidays") {
    return kHolidays;
  }
  const auto dash = std::min(word.find('-'), word.size());
  const auto first = day_named(word.substr(0, dash));
  const auto last = dash == word.size() ? first : day_named(word.substr(dash + 1));
  if (!first.has_value() || !last.has_value()) {
    return 0;
  }
  unsigned days = 1U << *first;
  for (unsigned day = *first; day != *last; days |= 1U << day) {
    day = (day + 1) % 7;
  }
  return static_cast<Days>(days);
}

Days days_of(const std::string& cell) {
  std::string text = lower(cell);
  std::ranges::replace(text, ',', ' ');
  unsigned days = 0;
  for (std::string_view rest = without_blanks(text); !rest.empty(); rest = without_blanks(rest)) {
    const auto word = rest.substr(0, rest.find_first_of(" \t"));
    const auto these = days_of_word(word);
    if (these == 0) {
      refuse(in_quotes(word) + " is no day: " + kDaysHelp);
    }
    days |= these;
    rest.remove_prefix(word.size());
  }
  if (days == 0) {
    refuse(std::string("there is no day: ") + kDaysHelp);
  }
  return static_cast<Days>(days);
}

std::optional<int> number_of(std::string_view digits) {
  int number = 0;
  const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  const bool is_whole = failure == std::errc() && end == digits.data() + digits.size() && digits.size() <= 4;
  return is_whole && number >= 0 ? std::optional(number) : std::nullopt;
}

// "8:00" as well as "08:00", and "08:00:00", which spreadsheets make of it. latest: in minutes.
int minute_of(const std::string& cell, int latest) {
  auto text = without_blanks(cell);
  if (text.size() > 5 && text.ends_with(":00")) {
    text.remove_suffix(3);
  }
  const auto colon = std::min(text.find(':'), text.size());
  const auto hour = number_of(text.substr(0, colon));
  const auto minute = colon == text.size() ? std::nullopt : number_of(text.substr(colon + 1));
  const bool is_time = hour.has_value() && minute.has_value() && text.size() - colon == 3 && *minute < 60;
  if (!is_time || *hour > 24 || *hour * 60 + *minute > latest) {
    refuse(in_quotes(cell) + " is no time of the day: give 00:00 to " + text_of_minute(latest));
  }
  return *hour * 60 + *minute;
}

// Nothing of what does not look like a date.
std::optional<LocalDay> date_of(std::string_view text) {
  text = without_blanks(text);
  if (text.size() != 10 || text[4] != '-' || text[7] != '-') {
    return std::nullopt;
  }
  const auto year = number_of(text.substr(0, 4));
  const auto month = number_of(text.substr(5, 2));
  const auto day = number_of(text.substr(8, 2));
  if (!year.has_value() || !month.has_value() || !day.has_value()) {
    return std::nullopt;
  }
  const auto date = std::chrono::year(*year) / *month / *day;
  if (!date.ok() || *year < 1970) {
    refuse(in_quotes(text) + " is no day of a calendar: give a date such as 2026-12-25");
  }
  return LocalDay(date);
}

bool has_control_character(std::string_view text) {
  return std::ranges::any_of(text, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; });
}

std::string name_of(const std::string& cell, bool is_holiday) {
  std::string name(without_blanks(cell));
  if (name.size() > kLongestScheduleName || has_control_character(name)) {
    refuse(in_quotes(name) + " is no name: give one line of " + std::to_string(kLongestScheduleName) +
           " bytes at most");
  }
  if (!is_holiday && (name.empty() || lower(name) == "none" || name.starts_with('-'))) {
    refuse(in_quotes(name) + " cannot be the name of a schedule: give another");
  }
  return name;
}

class Reader {
 public:
  Reader(std::string_view text, const std::string& name) : csv_(text), name_(name) {}

  Schedules read() {
    try {
      read_heading();
      while (csv_.next(cells_)) {
        rows_.take(row(), csv_.line());
      }
    } catch (const CsvError& error) {
      refuse_line(name_, error.line(), error.what());
    } catch (const Failure& failure) {
      refuse_line(name_, csv_.line(), failure.what());
    }
    return std::move(rows_).result();
  }

 private:
  void read_heading() {
    constexpr const char* kWayOut = ": the first line names the columns, which are name,days,from,to";
    csv_.next(cells_);
    for (const auto& cell : cells_) {
      const auto* const found = std::ranges::find(kColumns, lower(without_blanks(cell)));
      if (found == kColumns.end()) {
        refuse("there is no column " + in_quotes(cell) + kWayOut);
      }
      columns_.push_back(static_cast<std::size_t>(found - kColumns.begin()));
    }
    for (std::size_t column = 0; column < kColumns.size(); ++column) {
      if (std::ranges::count(columns_, column) != 1) {
        refuse("the column " + in_quotes(kColumns.at(column)) + " is not there once" + kWayOut);
      }
    }
  }

  Cells row() const {
    if (cells_.size() != columns_.size()) {
      refuse(std::to_string(cells_.size()) + " cells for " + std::to_string(columns_.size()) +
             " columns: give as many, and put a cell that has a comma in quotes");
    }
    Cells row;
    for (std::size_t i = 0; i < cells_.size(); ++i) {
      row.at(columns_[i]) = cells_[i];
    }
    row[kName] = from_safe_cell(std::move(row[kName]));
    return row;
  }

  CsvReader csv_;
  const std::string& name_;
  std::vector<std::size_t> columns_;
  std::vector<std::string> cells_;
  ScheduleRows rows_;
};

void append_row(std::string& text, const Cells& cells) {
  for (std::size_t column = 0; column < cells.size(); ++column) {
    append_csv_cell(text, column == kName ? as_safe_cell(cells.at(column)) : cells.at(column));
    text += column + 1 == cells.size() ? "\r\n" : ",";
  }
}

}  // namespace

void ScheduleRows::take(const Cells& row, std::size_t line) {
  if (count_++ == kMostScheduleRows) {
    refuse("more than " + std::to_string(kMostScheduleRows) + " lines: give fewer windows and holidays");
  }
  if (const auto date = date_of(row[kDays])) {
    take_holiday(*date, row, line);
    return;
  }
  const auto name = name_of(row[kName], false);
  const Window window{.days = days_of(row[kDays]),
                      .from = minute_of(row[kFrom], Window::kDay - 1),
                      .to = minute_of(row[kTo], Window::kDay)};
  if (window.from == window.to) {
    refuse("from " + row[kFrom] + " to " + row[kTo] + " is no time: give 00:00 and 24:00 for a whole day");
  }
  schedules_[name].push_back(window);
}

void ScheduleRows::take_holiday(LocalDay day, const Cells& row, std::size_t line) {
  if (!without_blanks(row[kFrom]).empty() || !without_blanks(row[kTo]).empty()) {
    refuse("a holiday has no times: leave from and to empty, and give a schedule a line with the day holiday");
  }
  const auto [place, is_new] = holidays_.try_emplace(day, name_of(row[kName], true), line);
  if (!is_new) {
    refuse(text_of(day) + " is a holiday in line " + std::to_string(place->second.second) +
           " already: give each day once");
  }
}

Schedules ScheduleRows::result() && {
  Schedules all;
  for (auto& [name, windows] : schedules_) {
    all.all.push_back({.name = name, .windows = std::move(windows)});
  }
  for (auto& [day, holiday] : holidays_) {
    all.holidays.push_back({.day = day, .name = std::move(holiday.first)});
  }
  return all;
}

Schedules parse_schedules(std::string_view text, const std::string& name) {
  return Reader(utf8_text(text, name), name).read();
}

std::string schedules_as_text(const Schedules& schedules) {
  std::string text;
  append_row(text, {kColumns[kName], kColumns[kDays], kColumns[kFrom], kColumns[kTo]});
  for (const auto& [name, windows, is_right] : schedules.all) {
    for (const auto& window : windows) {
      append_row(text, {name, text_of_days(window.days), text_of_minute(window.from), text_of_minute(window.to)});
    }
  }
  for (const auto& [day, name] : schedules.holidays) {
    append_row(text, {name, text_of(day), "", ""});
  }
  return text;
}

}  // namespace achost
