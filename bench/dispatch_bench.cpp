// What a round of the dispatch costs that announces nothing and forgets nothing, by the number of cards announced
// before: one card is read again, too early.
#include <benchmark/benchmark.h>

#include <chrono>

#include "dispatch.h"
#include "settings.h"
#include "store.h"

namespace {

void round(benchmark::State& state) {
  Store store;
  constexpr int kDay = 86'400'000;  // ms
  store->override_for_run("uhf", "read_interval", std::to_string(kDay));
  uhf_operation_mode_ = CONTINUOUS;
  same_tag_timeout_ = kDay;
  watchdogTimeout = kDay;
  const auto now = std::chrono::steady_clock::now();
  const auto cards = static_cast<std::uint64_t>(state.range(0));
  lastCardsSent_.clear();
  for (std::uint64_t card = 0; card < cards; ++card) {
    lastCardsSent_[card] = now;
  }
  TimePoint next_keep_alive = now;
  CardReading last_sent(0, now);
  for (auto _ : state) {
    lastCardsRead_[cards / 2] = now;
    processCardsToSend(next_keep_alive, last_sent);
    pruneCardsSent();
  }
  if (lastCardsSent_.size() != cards || last_sent.first != 0 || !lastCardsRead_.empty()) {
    state.SkipWithError("the round is not as it should be");
  }
  lastCardsSent_.clear();
}
BENCHMARK(round)->Name("round of the dispatch")->Arg(10)->Arg(1000)->Arg(100000);

}  // namespace
