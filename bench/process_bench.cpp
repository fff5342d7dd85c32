// achost with uhf.so, seen from outside: how soon it polls, what it takes of a core and of the memory. The reader's end
// of the line answers at once.
//
//   uhf-bench-process ACHOST [SECONDS [TAGS]]
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "bare_poll.h"
#include "full_journal.h"
#include "full_log.h"
#include "outside.h"
#include "store.h"
#include "table.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kStarts = 21;
constexpr int kRecords = 2'000'000;

std::string time_to_first_poll(const std::string& program, const std::string& state) {
  std::vector<double> times;
  for (int i = 0; i < kStarts; ++i) {
    Reader reader(1);
    const auto begin = Clock::now();
    const Process process(program, state, reader.path());
    pollfd line = reader.line();
    do {
      if (poll(&line, 1, 10'000) == 0) {
        throw std::runtime_error("achost does not poll");
      }
    } while (!reader.answer());
    times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - begin).count());
  }
  return number(median(times)) + " ms";
}

// Both poll at the same time, each its own reader, so that what else the machine does falls on both.
void poll(const std::string& program, const std::string& state, int tags, std::chrono::seconds time) {
  Reader reader_of_bare(tags);
  Reader reader(tags);
  const Process bare_process(poll_barely, reader_of_bare.path(), Reader(tags).answer_size());
  const Process process(program, state, reader.path());
  serve(reader, reader_of_bare, Clock::now() + std::chrono::seconds(2));
  const double memory_before = process.resident_memory();
  const double before = process.cpu();
  const double bare_before = bare_process.cpu();
  serve(reader, reader_of_bare, Clock::now() + time);
  const auto percent = [time](double seconds) { return 100 * seconds / static_cast<double>(time.count()); };
  const double achost = percent(process.cpu() - before);
  const double bare = percent(bare_process.cpu() - bare_before);
  const double memory = process.resident_memory();
  const std::string field = ", " + std::to_string(tags) + (tags == 1 ? " tag" : " tags") + " in the field";
  print_row("achost polling every 10 ms" + field, number(achost, 2) + " % of a core", ratio_of(achost, bare),
            tags <= 1 ? "0.5 %" : "");
  print_row("the same poll and nothing done with it" + field, number(bare, 2) + " % of a core");
  print_row("resident memory of achost" + field,
            number(memory / 1024, 2) + " MB, " + number(memory - memory_before, 0) + " kB more than at the beginning",
            "", "12 MB");
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words.empty() || words.size() > 3) {
    std::fputs("usage: uhf-bench-process ACHOST [SECONDS [TAGS]]\n", stderr);
    return 2;
  }
  const std::chrono::seconds time(words.size() > 1 ? std::stol(words[1]) : 10);
  const auto fields = words.size() > 2 ? std::vector{std::stoi(words[2])} : std::vector{0, 1, 50};
  const TemporaryDirectory state;
  print_row("from the start of achost to the first poll", time_to_first_poll(words[0], state.path()), "", "40 ms");
  {
    const TemporaryDirectory full;
    fill_log(full.path(), kRecords);
    fill_journal(full.path(), kRecords);
    print_row("the same with 2,000,000 audit records and journal entries", time_to_first_poll(words[0], full.path()),
              "", "40 ms");
  }
  for (const int tags : fields) {
    poll(words[0], state.path(), tags, time);
  }
  return 0;
}
