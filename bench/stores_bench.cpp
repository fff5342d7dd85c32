// Lists and exports of stores as full as they get, beside bare SQLite, and what appending costs while the audit log's
// surplus goes. The argument is achost.
#include <SQLiteCpp/SQLiteCpp.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "commands.h"
#include "full_log.h"
#include "refhost/audit_log.h"
#include "refhost/upkeep.h"
#include "store.h"
#include "table.h"

namespace {

namespace fs = std::filesystem;

constexpr int kRecords = 2'000'000;
constexpr int kAppends = 10'000;                    // the least, and as many more as it takes until all have gone
constexpr std::chrono::microseconds kBetween(200);  // that the removal takes too, where no disk holds the appends up
constexpr int kKept = 1'000;
constexpr double kLongest = 5;  // ms, of an append

void lists(const std::string& achost, const fs::path& directory) {
  const std::string many = ", 2,000,000 records";
  const auto log = directory / "audit.db";
  compare({{"`achost audit export --format csv`" + many,
            {achost, "audit", "export", "--format", "csv", "--state", directory}},
           {"`achost audit export --format jsonl`" + many,
            {achost, "audit", "export", "--format", "jsonl", "--state", directory}},
           {"`achost audit list`" + many, {achost, "audit", "list", "--state", directory}}},
          log, "all fields of 2,000,000 records read",
          "SELECT id, at, time, type, details FROM audit_logs ORDER BY id");
  compare({{"`achost audit list --since`, 8 of 2,000,000 records",
            {achost, "audit", "list", "--since", "2026-04-27T20:50:05Z", "--state", directory}},
           {"`achost --version`, which reads nothing", {achost, "--version"}}},
          log, "the same 8 records read", "SELECT id, at, time, type, details FROM audit_logs WHERE id > 1999992");
}

double append(refhost::AuditLog& log) {
  return milliseconds([&] { log.append({"2026-05-01T00:00:00.000+00:00", 1, "read_interval: 1 -> 2"}); });
}

// Turn by turn with a log of which nothing goes, so that what else the disk and the machine do falls on both.
void retention(const fs::path& directory, const fs::path& beside, const std::string& where) {
  refhost::AuditLog still(beside);
  refhost::AuditLog log(directory);
  sync();  // what filling has left to write is not the appends' to wait for
  std::vector<double> of_quiet;
  while (of_quiet.size() < kAppends) {
    of_quiet.push_back(append(still));
  }
  log.retain([] { return refhost::AuditRetention{.keep = kKept, .youngest_to_go = 0}; });
  std::atomic<bool> is_done = false;
  const refhost::Upkeep upkeep("upkeep", [&] {
    const bool has_more = log.tidy();
    is_done = is_done || !has_more;
    return has_more;
  });
  const auto size = [&] { return number(static_cast<double>(fs::file_size(directory / "audit.db")) / 1e6) + " MB"; };
  const std::string before = size();
  std::vector<double> of_still;
  std::vector<double> of_log;
  while (of_log.size() < kAppends || !is_done) {
    std::this_thread::sleep_for(kBetween);
    of_still.push_back(append(still));
    of_log.push_back(append(log));
  }
  for (const auto& [kind, share] : {std::pair{"median", 0.5}, {"999 of 1,000", 0.999}, {"the longest", 1.0}}) {
    const double time = quantile(of_log, share);
    const double reference = quantile(of_still, share);
    print_row("an append while 2,000,000 records go" + where + ", " + std::string(kind), number(time, 2) + " ms",
              ratio_of(time, reference), share == 1.0 ? "5 ms" : "");
    print_row("an append to another log meanwhile" + where + ", " + std::string(kind), number(reference, 2) + " ms");
    print_row("an append while nothing goes" + where + ", " + std::string(kind),
              number(quantile(of_quiet, share), 2) + " ms");
  }
  const auto long_ones = [](const std::vector<double>& times) {
    return std::to_string(std::ranges::count_if(times, [](double time) { return time > kLongest; })) + " of " +
           std::to_string(times.size());
  };
  print_row("appends that took more than 5 ms while they went" + where, long_ones(of_log));
  print_row("the same to another log meanwhile" + where, long_ones(of_still));
  print_row("the same while nothing went" + where, long_ones(of_quiet));
  print_row("the audit log's file after it" + where + ", of " + before, size());
}

}  // namespace

int main(int, char** arguments) {
  const TemporaryDirectory directory;
  fill_log(directory.path(), kRecords);
  lists(arguments[1], directory.path());
  const TemporaryDirectory in_memory("/dev/shm");
  const TemporaryDirectory beside_in_memory("/dev/shm");
  fs::copy(directory.path(), in_memory.path(), fs::copy_options::recursive);
  retention(in_memory.path(), beside_in_memory.path(), ", in memory");
  const TemporaryDirectory beside;
  retention(directory.path(), beside.path(), "");
  return 0;
}
