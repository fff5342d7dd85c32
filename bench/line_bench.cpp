// What the line between the reader's port and the plug-in costs. Measured beside the port itself in the same run: poll
// by poll for the time, and two of achost at the same time for the processor and the memory.
//
//   uhf-bench-line ACHOST [SECONDS]
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "bare_poll.h"
#include "line/line.h"
#include "outside.h"
#include "reader_end.h"
#include "store.h"
#include "t640.h"
#include "table.h"

namespace {

constexpr int kPolls = 1000;

// The plug-in's driver at a reader's line, or behind the line's terminal.
class Driver {
 public:
  Driver() : driver_(reader_.path(), kTimeout) {}
  explicit Driver(line::LineOptions options)
      : line_(std::make_unique<line::Line>(with(std::move(options), reader_.path()), nullptr)),
        driver_(line_->terminal(), kTimeout) {}

  // Microseconds from the last byte of the answer until the driver has the tag.
  double poll(int tag) {
    std::int64_t sent = 0;
    std::thread reader([&] { sent = reader_.answer(tag); });
    driver_.inventoryCard();
    const auto done = now();
    reader.join();
    return static_cast<double>(done - sent) / 1e3;
  }

 private:
  static constexpr std::chrono::milliseconds kTimeout{1000};

  static line::LineOptions with(line::LineOptions options, const std::string& path) {
    options.path = path;
    return options;
  }

  ReaderEnd reader_;
  std::unique_ptr<line::Line> line_;
  ac::UHF::T640 driver_;
};

void time_of_an_answer() {
  Driver direct;
  Driver through(line::LineOptions{});
  std::vector<double> at_port;
  std::vector<double> at_line;
  std::vector<double> more;
  for (int tag = 1; tag <= kPolls; ++tag) {
    at_port.push_back(direct.poll(tag));
    at_line.push_back(through.poll(tag));
    more.push_back(at_line.back() - at_port.back());
  }
  print_row("from the reader's last byte to the driver's result, at the port", number(median(at_port)) + " µs");
  print_row("the same through the line", number(median(at_line)) + " µs", ratio_of(at_line, at_port));
  print_row("of it the line", number(median(more)) + " µs", "", "60 µs");
}

// Both at the same time, so that what else the machine does falls on both.
void two_of_achost(const std::string& program, std::chrono::seconds time) {
  constexpr int kMany = 500;  // tags, of which the recording is full soon
  const TemporaryDirectory state;
  const TemporaryDirectory direct_state;
  Reader reader(kMany);
  Reader direct_reader(kMany);
  const Process through(program, state.path(), reader.path());
  const Process direct(program, direct_state.path(), direct_reader.path(), {"--direct"});
  const auto serve_for = [&](std::chrono::seconds some) {
    serve(reader, direct_reader, std::chrono::steady_clock::now() + some);
  };
  serve_for(std::chrono::seconds(15));
  reader.set_tags(1);
  direct_reader.set_tags(1);
  serve_for(std::chrono::seconds(3));
  const double before = through.cpu();
  const double direct_before = direct.cpu();
  serve_for(time);
  const auto percent = [time](double seconds) { return 100 * seconds / static_cast<double>(time.count()); };
  const double cost = percent(through.cpu() - before);
  const double direct_cost = percent(direct.cpu() - direct_before);
  print_row("achost polling every 10 ms, 1 tag in the field, `--direct`", number(direct_cost, 2) + " % of a core");
  print_row("the same through the line, recording", number(cost, 2) + " % of a core", ratio_of(cost, direct_cost));
  print_row("of it the line", number(cost - direct_cost, 2) + " % of a core", "", "0.3 %");
  const double memory = through.resident_memory() / 1024;
  const double direct_memory = direct.resident_memory() / 1024;
  print_row("resident memory, its recording full", number(memory, 2) + " MB", ratio_of(memory, direct_memory));
  print_row("of it the line", number(memory - direct_memory, 2) + " MB", "", "6 MB");
}

// What a line takes at least on this machine, by the same clock: a thread that passes the bytes on.
void bare_relay(std::chrono::seconds time) {
  Reader reader(1);
  Reader direct_reader(1);
  const Process through(poll_barely_through_a_relay, reader.path(), reader.answer_size());
  const Process direct(poll_barely, direct_reader.path(), direct_reader.answer_size());
  serve(reader, direct_reader, std::chrono::steady_clock::now() + std::chrono::seconds(2));
  const double before = through.cpu();
  const double direct_before = direct.cpu();
  serve(reader, direct_reader, std::chrono::steady_clock::now() + time);
  const double more = (through.cpu() - before) - (direct.cpu() - direct_before);
  print_row("a bare relay between the same poll and the reader",
            number(100 * more / static_cast<double>(time.count()), 2) + " % of a core");
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words.empty() || words.size() > 2) {
    std::fputs("usage: uhf-bench-line ACHOST [SECONDS]\n", stderr);
    return 2;
  }
  time_of_an_answer();
  const std::chrono::seconds time(words.size() > 1 ? std::stol(words[1]) : 20);
  two_of_achost(words[0], time);
  bare_relay(time);
  return 0;
}
