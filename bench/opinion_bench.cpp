// What the second opinion and the sightings take of achost's processor time: achost with the usual settings, at a
// simulated reader of 115,200 baud that is a process of its own, outside of what is measured. The system counts for
// each thread; what the line's thread does for it (an exchange handed over for each poll) is not among it.
//
//   uhf-bench-opinion ACHOST UHF_SIM [SECONDS [TAGS]]
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "outside.h"
#include "store.h"
#include "table.h"

namespace {

constexpr std::chrono::seconds kWarmUp{35};  // until the first sightings are over

std::filesystem::path field_of(const std::filesystem::path& directory, int tags) {
  auto file = directory / "field";
  std::ofstream out(file);
  for (int tag = 1; tag <= tags; ++tag) {
    char epc[25];
    std::snprintf(epc, sizeof epc, "E28011700000020A%08X", static_cast<unsigned>(tag));
    out << "add " << epc << "\n";
  }
  return file;
}

void wait_for(const std::filesystem::path& file) {
  for (int turn = 0; !std::filesystem::exists(file); ++turn) {
    if (turn == 1000) {
      throw std::runtime_error("uhf-sim does not begin");
    }
    usleep(10'000);
  }
}

// Of every thread of that name, in seconds.
double cpu_of(const std::map<std::string, double>& threads, const std::string& name) {
  const auto found = threads.find(name);
  return found != threads.end() ? found->second : 0;
}

double sum_of(const std::map<std::string, double>& threads) {
  return std::accumulate(threads.begin(), threads.end(), 0.0,
                         [](double sum, const auto& thread) { return sum + thread.second; });
}

void measure(const std::string& program, const std::string& simulator, std::chrono::seconds time, int tags) {
  const TemporaryDirectory directory;
  const auto port = directory.path() / "reader";
  const Process reader({simulator, "--scenario", field_of(directory.path(), tags), "--link", port});
  wait_for(port);
  const Process process(program, directory.path() / "state", port);
  std::this_thread::sleep_for(kWarmUp);
  const auto before = process.cpu_of_threads();
  std::this_thread::sleep_for(time);
  const auto after = process.cpu_of_threads();
  const double all = sum_of(after) - sum_of(before);
  const auto share = [&](const std::string& name) {
    return number(100 * (cpu_of(after, name) - cpu_of(before, name)) / all, 1) + " % of its processor time";
  };
  const auto field = std::to_string(tags) + " tags in the field";
  print_row("achost at uhf-sim, " + field, number(100 * all / static_cast<double>(time.count()), 2) + " % of a core");
  print_row("of it the second opinion and the sightings, their thread", share("reading_watch"), "", "3 %");
  print_row("of it the journal, which stores the sightings and all else", share("journal"));
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words.size() < 2 || words.size() > 4) {
    std::fputs("usage: uhf-bench-opinion ACHOST UHF_SIM [SECONDS [TAGS]]\n", stderr);
    return 2;
  }
  measure(words[0], words[1], std::chrono::seconds(words.size() > 2 ? std::stol(words[2]) : 60),
          words.size() > 3 ? std::stoi(words[3]) : 50);
  return 0;
}
