// A host in service: 500 tags before the reader, settings that change all the time, people who look and press buttons.
// Memory, threads and descriptors are flat.
//
// The environment variable SOAK_SECONDS gives for how long.
#include <gmock/gmock.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <future>
#include <iostream>
#include <limits>
#include <sstream>
#include <thread>

#include "door/control/control.h"
#include "door/tests/process.h"
#include "refhost/tests/support.h"
#include "uhfsim/simulated_reader.h"

using achost::ControlClient;
using achost::Json;
using achost::test::Achost;
using std::chrono::seconds;
using std::chrono::steady_clock;

namespace {

constexpr int kUsualSeconds = 100;
constexpr int kTags = 500;

// Within the last third of the time; in the first minute the stores' memory fills, and the sightings of all tags are
// noted. What waits for a thread, a few MB at the most, comes and goes with the machine's load, and the allocator keeps
// its room for a while: what leaks is what is allocated at the best of times. What threads
// keep for their next allocation counts as allocated, too.
constexpr std::int64_t kMostLeaked = 400L * 1024;
constexpr long kMostGrowth = 6L * 1024;  // kB

// What a process has of the system.
struct Footprint {
  long kilobytes = 0;
  long threads = 0;
  long descriptors = 0;
};

Footprint footprint_of(pid_t process) {
  const auto directory = std::filesystem::path("/proc") / std::to_string(process);
  Footprint footprint;
  std::ifstream status(directory / "status");
  for (std::string line; std::getline(status, line);) {
    std::istringstream words(line);
    std::string name;
    words >> name;
    if (name == "VmRSS:") {
      words >> footprint.kilobytes;
    } else if (name == "Threads:") {
      words >> footprint.threads;
    }
  }
  footprint.descriptors = std::distance(std::filesystem::directory_iterator(directory / "fd"), {});
  return footprint;
}

// A client that a test asks again and again; each time a new connection, as a person's commands are. A power may be
// stored and not in force: in a field of many tags the plug-in takes the rest of a long answer for the reader's power.
Json ask(const std::filesystem::path& state, const Json& request) {
  ControlClient client(state);
  client.send(request);
  Json answer = client.receive();
  EXPECT_TRUE(answer.at("ok").get<bool>() || answer.at("status") == 9) << answer;
  return answer;
}

class Soak : public testing::Test {
 protected:
  Soak() {
    for (int i = 0; i < kTags; ++i) {
      reader_.field().add({.epc = {0xE2, 0x80, 0x11, 0x70, 0, 0, 0, 0, 0, 0, static_cast<unsigned char>(i >> 8),
                                   static_cast<unsigned char>(i)}});
    }
  }

  std::filesystem::path state() const { return directory_.path() / "state"; }

  bool is_ready() const {
    try {
      return !ask(state(), {{"command", "status"}}).at("plugin").is_null();
    } catch (const ac::ac_exception&) {
      return false;
    }
  }

  // One of the things that happen to a host.
  void happen(int round) const {
    const auto set = [&](const char* key, const std::string& value) {
      ask(state(), {{"command", "config_set"}, {"section", "uhf"}, {"key", key}, {"value", value}});
    };
    switch (round % 5) {
      case 0:
        set("read_interval", std::to_string(250 + round % 1000));
        break;
      case 1:
        set("transmit_power", std::to_string(1500 + round % 1000));
        break;
      case 2:
        set("operation_mode", round % 2 == 0 ? "continuous" : "inhibit");
        break;
      case 3:
        ask(state(), {{"command", "rex"}});
        break;
      default:
        ask(state(), {{"command", "gpio_set"}, {"line", 1}, {"value", round % 2}});
    }
  }

  refhost::test::TemporaryDirectory directory_;
  uhfsim::SimulatedReader reader_{{.seed = 1, .baud = 0}};
};

}  // namespace

TEST_F(Soak, MemoryThreadsAndDescriptorsAreFlat) {
  const char* const wanted = std::getenv("SOAK_SECONDS");
  const seconds duration(wanted == nullptr ? kUsualSeconds : std::atoi(wanted));
  Achost host({"run", "--plugin", UHF_SO, "--state", state(), "--json", "--port", reader_.path(), "--set",
               "probe_interval=10", "--set", "read_interval_diff_tags=100", "--set", "trigger_timeout=0", "--set",
               "host.audit_keep=1000", "--set", "host.audit_keep_days=0"});
  auto lines = std::async(std::launch::async, [&host] {
    std::size_t count = 0;
    while (!host.next_line().empty()) {
      ++count;
    }
    return count;
  });
  while (!is_ready()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  const auto begin = steady_clock::now();
  std::optional<Footprint> warm;
  std::array<std::int64_t, 6> allocated;  // the least of each sixth
  allocated.fill(std::numeric_limits<std::int64_t>::max());
  int rounds = 0;
  for (; steady_clock::now() < begin + duration; ++rounds) {
    happen(rounds);
    const auto sixth = static_cast<std::size_t>(std::min((steady_clock::now() - begin) * 6 / duration, 5L));
    if (!warm && sixth == 4) {
      warm = footprint_of(host.pid());
    }
    if (rounds % 10 == 0) {
      const auto now = ask(state(), {{"command", "status"}}).at("allocated").get<std::int64_t>();
      allocated.at(sixth) = std::min(allocated.at(sixth), now);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(300));  // for the last client's thread
  const auto end = footprint_of(host.pid());
  const auto status = ask(state(), {{"command", "status"}});
  const auto notices = reader_.counters().notices;
  host.signal(SIGINT);
  const std::size_t events = lines.get();
  EXPECT_EQ(host.wait().status, 0);
  std::cout << duration.count() << " s, " << rounds << " requests, " << notices << " tag reports, " << events
            << " events: allocated " << allocated[4] / 1024 << " kB, then " << allocated[5] / 1024 << " kB; memory "
            << warm->kilobytes << " kB, then " << end.kilobytes << " kB; threads " << warm->threads << ", then "
            << end.threads << "; descriptors " << warm->descriptors << ", then " << end.descriptors << "\n";
  EXPECT_LE(allocated[5], allocated[4] + kMostLeaked);
  EXPECT_LE(end.kilobytes, warm->kilobytes + kMostGrowth);
  EXPECT_LE(end.threads, warm->threads + 1) << "a client's thread may be ending";
  EXPECT_LE(end.descriptors, warm->descriptors + 1);
  EXPECT_EQ(status.at("bus").at("dropped"), 0);
  EXPECT_GT(rounds, 10 * duration.count());
  EXPECT_GT(notices, static_cast<std::uint64_t>(100 * kTags));
}
