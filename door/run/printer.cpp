#include "door/run/printer.h"

#include <unistd.h>

#include <array>
#include <cstdio>
#include <utility>

#include "door/base/output.h"
#include "refhost/bus_counters.h"

namespace achost {
namespace {

std::string counted(std::uint64_t number, const std::string& noun) {
  return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

// What the bus could not do; empty when all went well.
std::string losses() {
  const auto counters = refhost::bus_counters();
  return (counters.dropped == 0 ? "" : ", " + counted(counters.dropped, "message") + " dropped") +
         (counters.failures == 0 ? "" : ", " + counted(counters.failures, "handler call") + " failed");
}

// One for each type of message that becomes an event.
std::vector<ac::MessageListener> listeners(const std::function<void(ac::Message*)>& handler) {
  std::vector<ac::MessageListener> result;
  for (const std::string& type : Event::message_types()) {
    result.push_back({type, handler, false});
  }
  return result;
}

// In place of lines that nobody took.
std::string gap_line(Printer::Form form, std::uint64_t lost) {
  return form == Printer::Form::json ? nlohmann::ordered_json{{"event", "output_lost"}, {"lines", lost}}.dump() + "\n"
                                     : "(" + counted(lost, "line") + " lost: nobody took them)\n";
}

}  // namespace

Printer::Printer(Form form, std::function<void(int)> on_failure)
    : form_(form),
      colour_(wants_colour()),
      output_(
          STDOUT_FILENO, "output",
          {.gap = [form](std::uint64_t lost) { return gap_line(form, lost); }, .on_failure = std::move(on_failure)}),
      subscriber_("achost", listeners([this](ac::Message* message) { print(*message); })) {}

void Printer::print(const ac::Message& message) {
  const auto event = Event::from(message, std::chrono::system_clock::now());
  if (!event.has_value()) {
    return;
  }
  const std::string line = form_ == Form::json ? event->json() : event->line(colour_, form_ == Form::human);
  const std::lock_guard lock(mutex_);
  if (!finished_) {
    count(*event);
    output_.put(line + "\n");
  }
}

void Printer::say(const std::string& text) {
  const std::lock_guard lock(mutex_);
  if (!finished_ && form_ != Form::json) {
    output_.put(colour_ ? "\n\x1b[1m" + text + "\x1b[0m\n" : "\n" + text + "\n");
  }
}

// With mutex_ held.
void Printer::count(const Event& event) {
  if (event.name == "identification") {
    ++identifications_;
    if (cards_.size() < kMostCards) {
      cards_.insert(event.fields.at("card").get<std::uint64_t>());
    }
  } else if (event.name == "door_open") {
    ++openings_;
  }
}

std::string Printer::finish(std::chrono::steady_clock::duration run) {
  const std::lock_guard lock(mutex_);
  finished_ = true;
  return summary_text(std::chrono::duration<double>(run).count(), identifications_, cards_.size(), kMostCards,
                      openings_) +
         losses();
}

void Printer::end_with(const std::string& line) {
  output_.put(line.empty() ? line : line + "\n");
  output_.drain(kLongestEnd);
}

std::string summary_text(double seconds, std::uint64_t identifications, std::size_t cards, std::size_t most_cards,
                         std::uint64_t openings) {
  std::array<char, 32> duration{};
  std::snprintf(duration.data(), duration.size(), "%.1f s: ", seconds);
  return duration.data() + counted(identifications, "identification") + " of " +
         (cards < most_cards ? "" : "at least ") + counted(cards, "card") + ", the door opened " +
         counted(openings, "time");
}

}  // namespace achost
