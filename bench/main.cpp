// Runs the benchmarks of this program and prints a row for each: medians of several repetitions, and their ratios.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "table.h"

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
  // Nothing when a filter left the benchmark out.
  std::optional<double> of(const std::string& name) const {
    const auto found = values_.find(name);
    return found == values_.end() ? std::nullopt : std::optional(found->second);
  }
  bool failed() const { return failed_; }

 private:
  std::map<std::string, double> values_;
  bool failed_ = false;
};

struct Row {
  std::string what;
  std::string benchmark;
  std::string reference;  // the benchmark that it is a ratio of; may be empty
  std::string target;
};

const std::vector<Row> kRows = {
    {"decode and check a notice of 24 bytes, to a tag record", "decode and check a notice",
     "decode by hand, one vector", "40 ns, ratio 2.8"},
    {"decode the same by hand, filling one vector", "decode by hand, one vector", "", ""},
    {"encode an inventory command", "encode an inventory command", "", "20 ns"},
    {"an inventory of 10 notices, a notice", "inventory of notices/10", "", ""},
    {"an inventory of 1,000 notices, a notice", "inventory of notices/1000", "inventory of notices/10", "ratio 1.1"},
    {"a round of the dispatch, 10 cards remembered", "round of the dispatch/10", "", ""},
    {"the same, 1,000 cards", "round of the dispatch/1000", "round of the dispatch/10", ""},
    {"the same, 100,000 cards", "round of the dispatch/100000", "round of the dispatch/10", "1 ms"},
    {"card value from an EPC, both settings read", "card value from an EPC", "", "150 ns"},
    {"host: `get_int`", "get_int", "", "40 ns"},
    {"host: `get_int`, another thread reads", "get_int beside a reader", "get_int", "40 ns"},
    {"host: `get_int`, another thread writes", "get_int beside a writer", "get_int", ""},
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
  for (const auto& row : kRows) {
    const auto value = medians.of(row.benchmark);
    const auto reference = medians.of(row.reference);
    if (value.has_value()) {
      print_row(row.what, number(*value) + " ns", reference.has_value() ? ratio_of(*value, *reference) : "",
                row.target);
    }
  }
  return 0;
}
