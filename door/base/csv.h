// CSV as RFC 4180 has it.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace achost {

// A text that is none; what() says why, and line() where.
class CsvError : public std::runtime_error {
 public:
  CsvError(std::size_t line, const std::string& text) : std::runtime_error(text), line_(line) {}
  std::size_t line() const { return line_; }

 private:
  std::size_t line_;
};

// One record after the other. Lines may end with \r\n or \n; the last one need not end. Blank lines are no records.
class CsvReader {
 public:
  // text must outlive the reader.
  explicit CsvReader(std::string_view text) : rest_(text) {}

  // The next record's cells; false at the end. Throws CsvError.
  bool next(std::vector<std::string>& cells);

  // Where the record begins that was read last; the first line is 1.
  std::size_t line() const { return begin_; }

 private:
  std::string cell();
  std::string quoted_cell();
  bool skip_line_end();

  std::string_view rest_;
  std::size_t line_ = 1;
  std::size_t begin_ = 1;
};

// The text as a cell, to the end of the line.
void append_csv_cell(std::string& line, std::string_view text);

// A spreadsheet takes a cell that begins with one of =+-@, a tab or a line's end for a formula, and runs it; behind an
// apostrophe it is a text. A text that begins like that, or so behind apostrophes, gets one more here, and loses one
// there: each text comes back as it was, and a name such as 't Hart stays what it is.
std::string as_safe_cell(std::string text);
std::string from_safe_cell(std::string text);

}  // namespace achost
