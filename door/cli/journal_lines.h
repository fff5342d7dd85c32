// The journal's entries as lines of text.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "door/journal/entry.h"

namespace achost {

enum class JournalForm {
  diary,  // "Tue 08:02:11  Ana (7)  came in with card 33", a heading for each day: for a person at a terminal
  lines,  // the same with the date in each line
  csv,    // as RFC 4180 has it, no cell a formula
  json,   // one object a line
};

struct JournalStyle {
  JournalForm form = JournalForm::lines;
  bool shows_cards = true;  // in full, where it is for a person
  bool has_colour = false;
  std::function<std::string(std::int64_t)> name_of = [](std::int64_t) { return std::string(); };  // of a user
};

// Who did what: "Ana (7)", "came in with card 33".
struct Sentence {
  std::string who;
  std::string what;
};
Sentence sentence_of(const Entry& entry, const JournalStyle& style);

// Times are local where and when the entry was written; one by a clock that was not known to be right has a "?" behind
// it.
class JournalLines {
 public:
  explicit JournalLines(JournalStyle style) : style_(std::move(style)) {}

  std::string heading() const;

  // One entry with its newline, to the end of the text.
  void append(std::string& text, const JournalEntry& entry);

 private:
  void append_diary(std::string& text, const JournalEntry& entry);
  void append_csv(std::string& text, const JournalEntry& entry) const;
  void append_json(std::string& text, const JournalEntry& entry) const;

  const JournalStyle style_;
  std::string day_;  // of the latest entry
};

}  // namespace achost
