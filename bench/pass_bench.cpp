// A polling pass with so many tags in the field: what it allocates. Under callgrind, with --collect-atstart=no
// --toggle-collect=measured, also what the thousand passes execute. The line is in memory and the threads' work is done
// one after the other, so that both are the same in every run.
//
//   uhf-bench-pass kTags
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <span>

#include "allocations.h"
#include "dispatch.h"
#include "notice.h"
#include "reading_loop.h"
#include "reply_line.h"
#include "settings.h"
#include "store.h"
#include "t640.h"

namespace {

constexpr int kWarmUp = 200;
constexpr int kPasses = 1000;

// The reading loop's and the dispatch thread's part of so many passes.
void passes(int count) {
  static TimePoint last_seen;
  static std::condition_variable cards_read;
  static TimePoint next_keep_alive = std::chrono::steady_clock::now();
  static CardReading last_sent(0, std::chrono::steady_clock::now());
  for (int i = 0; i < count; ++i) {
    readTags(last_seen, cards_read);
    processCardsToSend(next_keep_alive, last_sent);
    pruneCardsSent();
  }
}

}  // namespace

// By this name the profiler knows what to count.
extern "C" [[gnu::noinline]] void measured() { passes(kPasses); }

int main(int argc, char** argv) {
  const std::span arguments(argv, static_cast<std::size_t>(argc));
  if (arguments.size() != 2) {
    std::fputs("usage: uhf-bench-pass TAGS\n", stderr);
    return 2;
  }
  set_reply(answer_of(std::atoi(arguments[1])));
  Store store;
  constexpr int kDay = 86'400'000;  // ms
  store->override_for_run("uhf", "read_interval", std::to_string(kDay));
  uhf_operation_mode_ = CONTINUOUS;
  same_tag_timeout_ = kDay;
  watchdogTimeout = kDay;
  setProbeInterval(0);
  t640_module = std::make_unique<ac::UHF::T640>("/dev/null", std::chrono::milliseconds(0));
  passes(kWarmUp);  // until every tag is announced
  const auto blocks_before = blocks;
  const auto allocations_before = allocations;
  measured();
  std::printf("%.0f allocations, %zu blocks more than before\n",
              static_cast<double>(allocations - allocations_before) / kPasses, blocks - blocks_before);
  return 0;
}
