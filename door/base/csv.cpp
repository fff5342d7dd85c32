#include "door/base/csv.h"

#include <utility>

namespace achost {
namespace {

bool looks_like_formula(std::string_view text) {
  const auto begin = text.find_first_not_of('\'');
  return begin != text.npos && std::string_view("=+-@\t\r\n").find(text[begin]) != std::string_view::npos;
}

}  // namespace

bool CsvReader::skip_line_end() {
  for (const std::string_view end : {"\r\n", "\n"}) {
    if (rest_.starts_with(end)) {
      rest_.remove_prefix(end.size());
      ++line_;
      return true;
    }
  }
  return false;
}

bool CsvReader::next(std::vector<std::string>& cells) {
  cells.clear();
  while (skip_line_end()) {
  }
  begin_ = line_;
  if (rest_.empty()) {
    return false;
  }
  for (;;) {
    cells.push_back(rest_.starts_with('"') ? quoted_cell() : cell());
    if (rest_.empty() || skip_line_end()) {
      return true;
    }
    if (!rest_.starts_with(',')) {
      throw CsvError(line_,
                     "behind a cell in quotes stands neither a comma nor the line's end: write a quote inside as \"\"");
    }
    rest_.remove_prefix(1);
  }
}

std::string CsvReader::cell() {
  const auto end = rest_.find_first_of(",\"\r\n");
  const std::string_view text = rest_.substr(0, end);
  const std::string_view behind = rest_.substr(text.size());
  if (behind.starts_with('"') || (behind.starts_with('\r') && !behind.starts_with("\r\n"))) {
    throw CsvError(line_, std::string(behind[0] == '"' ? "a quote" : "a carriage return") +
                              " inside a cell that is not in quotes: put the whole cell in quotes, and write a quote "
                              "inside as \"\"");
  }
  rest_ = behind;
  return std::string(text);
}

std::string CsvReader::quoted_cell() {
  const std::size_t begin = line_;
  std::string text;
  for (std::size_t place = 1; place < rest_.size(); ++place) {
    const char c = rest_[place];
    if (c == '"') {
      if (!rest_.substr(place).starts_with("\"\"")) {
        rest_.remove_prefix(place + 1);
        return text;
      }
      ++place;
    }
    line_ += c == '\n' ? 1 : 0;
    text += c;
  }
  throw CsvError(begin, "the quotes of a cell that begins here do not end");
}

void append_csv_cell(std::string& line, std::string_view text) {
  if (text.find_first_of(",\"\r\n") == text.npos) {
    line += text;
    return;
  }
  line += '"';
  for (const char c : text) {
    line.append(c == '"' ? 2 : 1, c);
  }
  line += '"';
}

std::string as_safe_cell(std::string text) {
  if (looks_like_formula(text)) {
    text.insert(0, 1, '\'');
  }
  return text;
}

std::string from_safe_cell(std::string text) {
  if (text.starts_with('\'') && looks_like_formula(text)) {
    text.erase(0, 1);
  }
  return text;
}

}  // namespace achost
