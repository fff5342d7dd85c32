// The tags in the field as a table that keeps its place on a terminal.
#pragma once

#include <string>
#include <vector>

#include "tags.h"
#include "terminal.h"

namespace uhfctl {

// How the number of a card is made of its EPC, as the settings of these names.
struct CardForm {
  int identification_bits = 32;
  bool from_front = false;  // reader_type lsb

  std::uint64_t value_of(const SeenTag& tag) const;
};

// A line of plain ASCII.
struct LiveLine {
  std::string text;
  bool faded = false;  // of a tag that has left
};

// A heading and a tag a line, or two lines where the terminal is narrow, none longer than its width: EPC, card value,
// RSSI with a bar, share of the last polls that read it, how long ago that was. A tag that has not been read for 2 s is
// faded, and after 10 s away; no more than fit the height, the heading and a line that says how many more there are
// among them.
std::vector<LiveLine> live_table(const Tags& tags, const CardForm& form, Clock::time_point now,
                                 const TerminalSize& size);

// The same of every tag that was seen, whatever the height.
std::vector<LiveLine> whole_table(const Tags& tags, const CardForm& form, Clock::time_point now, std::size_t columns);

// Lines at the end of a terminal, each time in place of those before.
class LiveArea {
 public:
  void show(const std::vector<LiveLine>& lines);

 private:
  std::vector<std::size_t> lengths_;  // of the lines that stand there
};

}  // namespace uhfctl
