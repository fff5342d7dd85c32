// Runs the benchmarks and prints one table: medians of several repetitions in one run, and their ratios.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

// Nanoseconds an iteration (or an item, where a benchmark counts items): the median, by the benchmark's name.
class Medians final : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const auto& run : runs) {
      if (run.error_occurred) {
        failed_ = true;
        std::fprintf(stderr, "bench: %s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
      } else if (run.aggregate_name == "median") {
        const auto items = run.counters.find("items_per_second");
        values_[run.run_name.function_name + (run.run_name.args.empty() ? "" : "/" + run.run_name.args)] =
            items == run.counters.end() ? run.GetAdjustedCPUTime() : 1e9 / items->second.value;
      }
    }
  }
  double of(const std::string& name) const { return values_.at(name); }
  bool failed() const { return failed_; }

 private:
  std::map<std::string, double> values_;
  bool failed_ = false;
};

struct Row {
  const char* what;
  const char* benchmark;
  const char* reference;  // the benchmark that it is a ratio of; null: the target is in ns
  double target;
};

constexpr Row ROWS[] = {
    {"decode and check a notice of 24 bytes", "decode and check a notice", "decode by hand, one vector", 4.0},
    {"decode the same by hand, filling one vector", "decode by hand, one vector", nullptr, 0},
    {"encode an inventory command", "encode an inventory command", nullptr, 0},
    {"an inventory of 10 notices, a notice", "inventory of notices/10", nullptr, 0},
    {"an inventory of 1,000 notices, a notice", "inventory of notices/1000", "inventory of notices/10", 1.2},
    {"`get_int` of the reference host", "get_int of the reference host", nullptr, 100},
    {"card value from an EPC, both settings read", "card value from an EPC", nullptr, 0},
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 2;
  }
  Medians medians;
  benchmark::RunSpecifiedBenchmarks(&medians);
  if (medians.failed()) {
    return 1;
  }
  std::printf("| What | Median, ns | Ratio | Target |\n|---|---:|---:|---|\n");
  for (const auto& row : ROWS) {
    const double value = medians.of(row.benchmark);
    const std::string ratio =
        row.reference == nullptr ? "" : std::to_string(value / medians.of(row.reference)).substr(0, 4);
    char target[32] = "";
    if (row.target > 0) {
      std::snprintf(target, sizeof target, row.reference == nullptr ? "below %.0f ns" : "ratio at most %.1f",
                    row.target);
    }
    std::printf("| %s | %.1f | %s | %s |\n", row.what, value, ratio.c_str(), target);
  }
  return 0;
}
