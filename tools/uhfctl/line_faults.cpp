#include "line_faults.h"

#include <algorithm>
#include <functional>
#include <numeric>

namespace uhfctl {

namespace {

struct Row {
  const char* name;
  FaultAdvice advice;
};

// By the number of the fault.
constexpr std::array<Row, kLineFaults> kRows{{
    {"good", {"", ""}},
    {"junk",
     {"something answers, but no frame of a reader",
      "another device, or another baud rate? The reader must speak at 115200 baud; then check TX and RX"}},
    {"out of step",
     {"what comes is the answer to another question", "let no other program use the reader, or raise --timeout"}},
    {"cut off",
     {"the answers are cut off", "check the reader's supply, which sags while it transmits, then plugs and cable"}},
    {"wrong checksum",
     {"the answers are damaged", "shorten the cable, keep it from mains and motors, connect the grounds"}},
    {"echo",
     {"what is sent comes back",
      "TX and RX touch each other, or the adapter echoes: part them, or switch its echo off"}},
    {"flood",
     {"bytes come without end",
      "take the reader's power off and on again; if it goes on, this is another device or another baud rate"}},
}};

}  // namespace

FaultAdvice advice_on(LineFault fault) { return kRows[static_cast<std::size_t>(fault)].advice; }

PollFaults& PollFaults::operator+=(const PollFaults& other) {
  std::ranges::transform(counts_, other.counts_, counts_.begin(), std::plus());
  return *this;
}

int PollFaults::polls() const { return std::accumulate(counts_.begin(), counts_.end(), 0); }

LineFault PollFaults::commonest() const {
  const auto most = std::max_element(counts_.begin() + 1, counts_.end());
  return *most == 0 ? LineFault::none : static_cast<LineFault>(most - counts_.begin());
}

std::string PollFaults::text() const {
  const int all = polls();
  std::string text = std::to_string(bad()) + " of " + std::to_string(all) + " polls bad";
  if (bad() == 0) {
    return text;
  }
  const char* separator = "%): ";
  text += " (" + std::to_string(std::max(1, bad() * 100 / all)) + " ";
  for (std::size_t i = 1; i < kLineFaults; ++i) {
    if (counts_[i] > 0) {
      text += separator + std::to_string(counts_[i]) + " " + kRows[i].name;
      separator = ", ";
    }
  }
  return text;
}

nlohmann::ordered_json PollFaults::as_object() const {
  nlohmann::ordered_json object{{"polls", polls()}, {"bad", bad()}};
  for (std::size_t i = 1; i < kLineFaults; ++i) {
    object[kRows[i].name] = counts_[i];
  }
  return object;
}

}  // namespace uhfctl
