// What the reference host's settings cost, alone and while another thread uses them.
#include <benchmark/benchmark.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "ac/config_util.h"
#include "card_value.h"
#include "store.h"

namespace {

const std::string kSection = "uhf";
const std::string kKey = "identification_bits";

// Measures get_int() while another thread does something again and again.
void getInt(benchmark::State& state, const std::function<void(Store&)>& beside) {
  Store store;
  // Not on a cache line that this thread's loop writes.
  struct alignas(64) {
    std::atomic<bool> stop;  // written by this thread
  } end{!beside};
  std::jthread other([&store, &end, beside] {
    while (!end.stop) {
      beside(store);
    }
  });
  for (auto _ : state) {
    benchmark::DoNotOptimize(ac::config_util::get_int(kSection, kKey, false));
  }
  end.stop = true;
}

void read(Store&) { benchmark::DoNotOptimize(ac::config_util::get_int(kSection, kKey, false)); }

void write(Store& store) {
  static int turn = 0;
  store->override_for_run(kSection, kKey, ++turn % 2 == 0 ? "32" : "34");
}

BENCHMARK_CAPTURE(getInt, alone, nullptr)->Name("get_int");
BENCHMARK_CAPTURE(getInt, read, read)->Name("get_int beside a reader");
BENCHMARK_CAPTURE(getInt, write, write)->Name("get_int beside a writer");

void card_value(benchmark::State& state) {
  const Store store;
  const std::vector<unsigned char> epc{0xE2, 0x00, 0x68, 0x0A, 0x00, 0x01, 0x02, 0x03, 0x12, 0x34, 0x56, 0x78};
  for (auto _ : state) {
    benchmark::DoNotOptimize(toCardValue(epc));
  }
}
BENCHMARK(card_value)->Name("card value from an EPC");

}  // namespace
