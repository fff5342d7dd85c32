// What the reference host's settings cost.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "ac/config_util.h"
#include "card_value.h"
#include "refhost/settings_store.h"

namespace {

std::filesystem::path makeDirectory() {
  auto path = (std::filesystem::temp_directory_path() / "uhf-bench-XXXXXX").string();
  if (mkdtemp(path.data()) == nullptr) {
    throw std::runtime_error("no temporary directory");
  }
  return path;
}

// Makes a store the host's own for as long as this lives.
class Store {
 public:
  Store() { refhost::SettingsStore::make_current(&store_); }
  ~Store() {
    refhost::SettingsStore::make_current(nullptr);
    std::filesystem::remove_all(directory_);
  }

 private:
  std::filesystem::path directory_ = makeDirectory();
  refhost::SettingsStore store_{directory_, refhost::SettingsStore::Access::read_write};
};

void getInt(benchmark::State& state) {
  const Store store;
  const std::string section = "uhf";
  const std::string key = "identification_bits";
  for (auto _ : state) {
    benchmark::DoNotOptimize(ac::config_util::get_int(section, key, false));
  }
}
BENCHMARK(getInt)->Name("get_int of the reference host");

void cardValue(benchmark::State& state) {
  const Store store;
  const std::vector<unsigned char> epc{0xE2, 0x00, 0x68, 0x0A, 0x00, 0x01, 0x02, 0x03, 0x12, 0x34, 0x56, 0x78};
  for (auto _ : state) {
    benchmark::DoNotOptimize(toCardValue(epc));
  }
}
BENCHMARK(cardValue)->Name("card value from an EPC");

}  // namespace
