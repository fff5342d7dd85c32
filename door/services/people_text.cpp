#include "door/services/people_text.h"

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "door/base/csv.h"
#include "door/base/encoding.h"
#include "door/base/failure.h"
#include "door/base/json_value.h"
#include "door/base/local_time.h"

namespace achost {
namespace {

using nlohmann::json;

std::string all_columns() {
  std::string all;
  for (const char* const column : kPeopleColumns) {
    all += (all.empty() ? "" : ", ") + std::string(column);
  }
  return all;
}

// Its place in kPeopleColumns.
std::optional<std::size_t> column_of(const std::string& text) {
  const auto* const found = std::ranges::find(kPeopleColumns, without_blanks(text));
  return found == kPeopleColumns.end() ? std::nullopt : std::optional<std::size_t>(found - kPeopleColumns.begin());
}

// Whose text is one, where a spreadsheet could see a formula.
bool is_text(std::size_t column) {
  const std::string_view name = kPeopleColumns.at(column);
  return name == "name" || name == "schedule" || name == "registration";
}

class CsvPeople {
 public:
  CsvPeople(std::string_view text, const std::string& name) : reader_(text), name_(name), rows_(name) {}

  PeopleImport read() {
    try {
      read_heading();
      while (reader_.next(cells_)) {
        read_row();
      }
    } catch (const CsvError& error) {
      refuse_line(name_, error.line(), error.what());
    }
    return std::move(rows_).result();
  }

 private:
  void read_heading() {
    if (!reader_.next(cells_)) {
      refuse_line(name_, 1, "there is nothing: give a line with the names of the columns first, such as id,name,card");
    }
    for (const auto& cell : cells_) {
      const auto column = column_of(cell);
      if (!column.has_value()) {
        refuse_line(name_, reader_.line(),
                    "there is no column " + in_quotes(cell) + ": the first line names the columns, " +
                        "separated by commas, of " + all_columns());
      }
      if (std::ranges::find(columns_, *column) != columns_.end()) {
        refuse_line(name_, reader_.line(), "the column " + in_quotes(cell) + " is there twice: give it once");
      }
      columns_.push_back(*column);
    }
    if (std::ranges::find(columns_, 0) == columns_.end()) {
      refuse_line(name_, reader_.line(),
                  "there is no column id: the first line names the columns, of " + all_columns());
    }
  }

  void read_row() {
    if (cells_.size() != columns_.size()) {
      refuse_line(name_, reader_.line(),
                  std::to_string(cells_.size()) + " cells for " + std::to_string(columns_.size()) +
                      " columns: give as many, and put a cell that has a comma in quotes");
    }
    PeopleCells row;
    for (std::size_t i = 0; i < cells_.size(); ++i) {
      row.at(columns_[i]) = is_text(columns_[i]) ? from_safe_cell(std::move(cells_[i])) : std::move(cells_[i]);
    }
    rows_.take(row, reader_.line());
  }

  CsvReader reader_;
  const std::string& name_;
  std::vector<std::size_t> columns_;
  std::vector<std::string> cells_;
  PeopleRows rows_;
};

// As a cell of CSV has it; nothing of what no cell can be.
std::optional<std::string> cell_of(const json& value) {
  return value.is_string()           ? std::optional(value.get<std::string>())
         : value.is_number_integer() ? std::optional(value.dump())
         : value.is_boolean()        ? std::optional<std::string>(value.get<bool>() ? "1" : "0")
         : value.is_null()           ? std::optional<std::string>("")
                                     : std::nullopt;
}

PeopleCells cells_of(std::string_view text) {
  const json object = json::parse(text, nullptr, false);
  if (!object.is_object()) {
    throw Failure(kUsage, R"(this is no JSON object: give one a line, such as {"id": 7, "name": "Ana", "card": 33})");
  }
  PeopleCells row;
  for (const auto& [key, value] : object.items()) {
    const auto column = column_of(key);
    auto cell = cell_of(value);
    if (!column.has_value()) {
      throw Failure(kUsage, "there is no key " + in_quotes(key) + ": there are " + all_columns());
    }
    if (!cell.has_value()) {
      throw Failure(kUsage, key + " cannot be " + in_message(value) + ": give a text or a whole number");
    }
    row.at(*column) = std::move(cell);
  }
  return row;
}

PeopleImport read_json(std::string_view text, const std::string& name) {
  PeopleRows rows(name);
  for (std::size_t number = 1; !text.empty(); ++number) {
    const auto end = text.find('\n');
    const auto line = text.substr(0, end);
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
    if (line.find_first_not_of(" \t\r") == line.npos) {
      continue;
    }
    PeopleCells cells;
    try {
      cells = cells_of(line);
    } catch (const Failure& failure) {
      refuse_line(name, number, failure.what());
    }
    rows.take(cells, number);
  }
  return std::move(rows).result();
}

// Empty without a limit. To the millisecond, with the zone's offset: the same moment everywhere.
std::string limit_text(std::int64_t time) {
  return time == 0 ? "" : iso_time(Milliseconds(std::chrono::milliseconds(time)));
}

std::string pause_text(std::int64_t pause) { return pause == 0 ? "" : text_of_pause(pause); }

void append_csv(std::string& text, const User& user, const Card* card) {
  const std::string blocked = user.blocked ? "1" : "0";
  const std::string cells[] = {std::to_string(user.id),
                               as_safe_cell(user.name),
                               card == nullptr ? "" : std::to_string(card->value),
                               limit_text(user.from),
                               limit_text(user.until),
                               blocked,
                               as_safe_cell(user.schedule),
                               pause_text(user.pause),
                               card == nullptr ? "" : as_safe_cell(card->registration),
                               card == nullptr ? "" : card->enrolled};
  for (const auto& cell : cells) {
    append_csv_cell(text, cell);
    text += ',';
  }
  text.replace(text.size() - 1, 1, "\r\n");
}

void append_json(std::string& text, const User& user, const Card* card) {
  nlohmann::ordered_json object = {{"id", user.id}, {"name", user.name}};
  if (card != nullptr) {
    object["card"] = card->value;
  }
  object["from"] = limit_text(user.from);
  object["until"] = limit_text(user.until);
  object["blocked"] = user.blocked;
  object["schedule"] = user.schedule;
  object["pause"] = pause_text(user.pause);
  if (card != nullptr) {
    object["registration"] = card->registration;
    object["enrolled"] = card->enrolled;
  }
  text += object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

std::string heading() {
  std::string line;
  for (const char* const column : kPeopleColumns) {
    line += (line.empty() ? "" : ",") + std::string(column);
  }
  return line + "\r\n";
}

}  // namespace

std::optional<PeopleForm> people_form(const std::string& text) {
  return text == "csv"     ? std::optional(PeopleForm::csv)
         : text == "jsonl" ? std::optional(PeopleForm::json)
                           : std::nullopt;
}

std::string people_as_text(const People& people, PeopleForm form) {
  std::vector<const Card*> cards;
  cards.reserve(people.cards.size());
  std::ranges::transform(people.cards, std::back_inserter(cards), [](const Card& card) { return &card; });
  std::ranges::stable_sort(cards, {}, &Card::user);
  const auto append = form == PeopleForm::csv ? append_csv : append_json;
  std::string text = form == PeopleForm::csv ? heading() : "";
  auto card = cards.begin();
  for (const auto& user : people.users) {
    card = std::find_if(card, cards.end(), [&](const Card* one) { return one->user >= user.id; });
    if (card == cards.end() || (*card)->user != user.id) {
      append(text, user, nullptr);
    }
    for (; card != cards.end() && (*card)->user == user.id; ++card) {
      append(text, user, *card);
    }
  }
  return text;
}

PeopleImport parse_people(std::string_view text, const std::string& name, std::optional<PeopleForm> form) {
  text = utf8_text(text, name);
  const bool is_json = form.has_value() ? *form == PeopleForm::json : text.starts_with('{');
  return is_json ? read_json(text, name) : CsvPeople(text, name).read();
}

}  // namespace achost
