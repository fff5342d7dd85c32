// The output of a run.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <unordered_set>

#include "ac/message.h"
#include "door/services/event.h"
#include "refhost/line_writer.h"
#include "refhost/subscriber.h"

namespace achost {

// How long an end waits for whoever reads standard output or the log.
inline constexpr std::chrono::milliseconds kLongestEnd(500);

// Writes a line to standard output for each thing that happens, the moment its message is delivered, and counts. Nobody
// waits for the output: lines that nobody takes are dropped, and a line says how many.
class Printer {
 public:
  // human: for a person, with card values in full; masked: with their last four digits; json: in full, for a program.
  enum class Form { human, masked, json };

  // on_failure: called with an errno when standard output cannot be written, on a thread of the output.
  Printer(Form form, std::function<void(int)> on_failure);

  // Write a heading, in the form for a person alone.
  void say(const std::string& text);

  // End the output: whatever comes later is neither written nor counted. The summary of what came, one line without a
  // newline, after a run of that length.
  std::string finish(std::chrono::steady_clock::duration run);

  // Write a last line behind all that came, as far as somebody takes it soon.
  void end_with(const std::string& line);

 private:
  void print(const ac::Message& message);
  void count(const Event& event);

  // Above this many different cards the memory is not worth the exact number.
  static constexpr std::size_t kMostCards = 100000;

  const Form form_;
  const bool colour_;
  refhost::LineWriter output_;
  std::mutex mutex_;  // guards everything below
  bool finished_ = false;
  std::uint64_t identifications_ = 0;
  std::uint64_t openings_ = 0;
  std::unordered_set<std::uint64_t> cards_;
  refhost::Subscriber subscriber_;  // last: it stops using the others before they go
};

// The summary: "12.0 s: 7 identifications of 4 cards, the door opened 3 times".
std::string summary_text(double seconds, std::uint64_t identifications, std::size_t cards, std::size_t most_cards,
                         std::uint64_t openings);

}  // namespace achost
