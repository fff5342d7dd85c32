// The host's bus beside others: how many messages a second go from one thread to another, and how long one takes that
// finds the receiver asleep. Sender and receiver have a processor each, the same for all ways, which take turns.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

#include "bus_ways.h"
#include "pin.h"
#include "refhost/bus_counters.h"
#include "table.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kFloods = 300;
constexpr std::int64_t kFlood = 20'000;          // messages of one: short, so that most find the machine to themselves
constexpr std::int64_t kWindow = 8192;           // of them that may be on their way; below the bound of the bus's queue
constexpr int kSingles = 2000;                   // messages, one at a time
constexpr std::chrono::microseconds kRest{200};  // between them, in which the receiver falls asleep

std::int64_t now() { return Clock::now().time_since_epoch().count(); }

Identification identification(std::int64_t value) {
  return {.identifier_id = 4,
          .value = value,
          .device_id = 1,
          .readings_count = 0,
          .uuid = "4dd54ee7-b0f4-44c5-9f0d-7e3f2c5a8a11"};
}

// Million messages a second.
double flood(Way& way) {
  // Not on a cache line that the sender writes.
  struct alignas(64) {
    std::atomic<std::int64_t> count = 0;  // written by the receiver
  } done;
  way.received = [&](const Identification& seen) { done.count.store(seen.value + 1, std::memory_order_release); };
  Identification next = identification(0);
  const auto begin = now();
  for (; next.value < kFlood; ++next.value) {
    // Looked at seldom, as to look costs both.
    while (next.value % 256 == 0 && next.value - done.count.load(std::memory_order_acquire) >= kWindow) {
      std::this_thread::yield();
    }
    way.send(next);
  }
  while (done.count != kFlood) {
    std::this_thread::yield();
  }
  return static_cast<double>(kFlood) * 1e3 / static_cast<double>(now() - begin);
}

// Microseconds from before the send until the receiver has it.
double single(Way& way) {
  std::atomic<std::int64_t> taken = 0;  // when; written by the receiver
  way.received = [&](const Identification&) { taken = now(); };
  std::this_thread::sleep_for(kRest);
  const Identification one = identification(1);
  const auto sent = now();
  way.send(one);
  while (taken == 0) {
    std::this_thread::sleep_for(kRest);
  }
  return static_cast<double>(taken - sent) / 1e3;
}

struct Contender {
  const char* flood_text;
  const char* single_text;
  std::unique_ptr<Way> way;
  std::vector<double> floods{};
  std::vector<double> singles{};
};

}  // namespace

int main() {
  pin(0);  // the receivers' threads
  std::vector<Contender> contenders;
  contenders.push_back({.flood_text = "bus: messages of five fields from one thread to another",
                        .single_text = "bus: one message to a thread that sleeps",
                        .way = bus()});
  contenders.push_back({.flood_text = "the same content through ZeroMQ inproc",
                        .single_text = "the same content through ZeroMQ inproc, to a thread that sleeps",
                        .way = zero_mq()});
  contenders.push_back({.flood_text = "the same content through a queue with mutex and condition variable",
                        .single_text = "the same content through such a queue, to a thread that sleeps",
                        .way = plain_queue()});
  pin(1);  // the sender
  for (int i = 0; i < kFloods; ++i) {
    for (auto& contender : contenders) {
      contender.floods.push_back(flood(*contender.way));
    }
  }
  for (int i = 0; i < kSingles; ++i) {
    for (auto& contender : contenders) {
      contender.singles.push_back(single(*contender.way));
    }
  }
  if (refhost::bus_counters().dropped != 0 || refhost::bus_counters().failures != 0) {
    std::fputs("bench: the bus dropped messages\n", stderr);
    return 1;
  }
  const auto& of_bus = contenders.front();
  for (const auto& contender : contenders) {
    const bool is_bus = &contender == &of_bus;
    print_row(contender.flood_text, number(median(contender.floods), 2) + " M/s",
              is_bus ? "" : ratio_of(of_bus.floods, contender.floods), is_bus ? "at least 3 M/s" : "");
  }
  for (const auto& contender : contenders) {
    print_row(contender.single_text, number(median(contender.singles)) + " µs",
              &contender == &of_bus ? "" : ratio_of(of_bus.singles, contender.singles));
  }
  return 0;
}
