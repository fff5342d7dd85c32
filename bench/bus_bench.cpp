// The host's bus beside others: how many messages a second go from one thread to another, and how long one takes that
// finds the receiver asleep. The others are a queue with a mutex and a condition variable, which is the least that
// waits without burning a core, and ZeroMQ's pairs inside a process.
#include <zmq.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

#include "ac/message.h"
#include "ac/post_office.h"
#include "refhost/bus_counters.h"
#include "refhost/subscriber.h"
#include "table.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRuns = 7;
constexpr std::int64_t kFlood = 500'000;         // messages of a run
constexpr std::int64_t kWindow = 8192;           // of them that may be on their way; below the bound of the bus's queue
constexpr int kSingles = 500;                    // messages of a run, one at a time
constexpr std::chrono::microseconds kRest{200};  // between them, in which the receiver falls asleep

std::int64_t now() { return Clock::now().time_since_epoch().count(); }

// A way from this thread to another.
class Way {
 public:
  virtual ~Way() = default;

  // Sends a message that carries this number.
  virtual void send(std::int64_t number) = 0;

  // What the receiver does with the number; set before the first send().
  std::function<void(std::int64_t)> received;
};

// An identification, as the plug-in sends it.
class Bus final : public Way {
 public:
  void send(std::int64_t number) override {
    auto message = std::make_unique<ac::Message>("identifier_new_card");
    message->add_int("identifier_id", 4);
    message->add_int64("value", number);
    message->add_int64("device_id", 1);
    message->add_int("readings_count", 0);
    message->add_string("uuid", "4dd54ee7-b0f4-44c5-9f0d-7e3f2c5a8a11");
    ac::PostOffice::send_message(std::move(message));
  }

 private:
  // Reads all five, as the host's own recipients do.
  void take(const ac::Message& message) const {
    int id = 0;
    int count = 0;
    std::int64_t number = 0;
    std::int64_t device = 0;
    std::string uuid;
    if (!message.get_int("identifier_id", &id) || !message.get_int64("value", &number) ||
        !message.get_int64("device_id", &device) || !message.get_int("readings_count", &count) ||
        !message.get_string("uuid", &uuid)) {
      throw std::runtime_error("a field is missing");
    }
    received(number);
  }

  refhost::Subscriber subscriber_{
      "bench", {{.type = "identifier_new_card", .handler = [this](ac::Message* m) { take(*m); }, .flag = false}}};
};

// The same content, as one block of memory.
struct Block {
  std::int64_t value;
  char rest[92];
};

class Bare final : public Way {
 public:
  ~Bare() override { send(-1); }
  void send(std::int64_t number) override {
    {
      const std::lock_guard lock(mutex_);
      waiting_.push_back({.value = number, .rest = {}});
    }
    filled_.notify_one();
  }

 private:
  void run() {
    for (;;) {
      std::unique_lock lock(mutex_);
      filled_.wait(lock, [&] { return !waiting_.empty(); });
      const auto block = waiting_.front();
      waiting_.pop_front();
      lock.unlock();
      if (block.value < 0) {
        return;
      }
      received(block.value);
    }
  }

  std::mutex mutex_;  // guards waiting_
  std::condition_variable filled_;
  std::deque<Block> waiting_;
  std::jthread thread_{[this] { run(); }};
};

class ZeroMq final : public Way {
 public:
  ZeroMq() {
    for (void* const end : {sender_, receiver_}) {
      const int unbounded = 0;
      zmq_setsockopt(end, ZMQ_SNDHWM, &unbounded, sizeof unbounded);
      zmq_setsockopt(end, ZMQ_RCVHWM, &unbounded, sizeof unbounded);
    }
    if (zmq_bind(receiver_, "inproc://bench") != 0 || zmq_connect(sender_, "inproc://bench") != 0) {
      throw std::runtime_error("ZeroMQ gives no pair");
    }
    thread_ = std::thread([this] { run(); });
  }
  ~ZeroMq() override {
    send(-1);
    thread_.join();
    zmq_close(sender_);
    zmq_close(receiver_);
    zmq_ctx_term(context_);
  }
  void send(std::int64_t number) override {
    const Block block{.value = number, .rest = {}};
    zmq_send(sender_, &block, sizeof block, 0);
  }

 private:
  void run() {
    for (Block block{}; zmq_recv(receiver_, &block, sizeof block, 0) == sizeof block && block.value >= 0;) {
      received(block.value);
    }
  }

  void* const context_ = zmq_ctx_new();
  void* const sender_ = zmq_socket(context_, ZMQ_PAIR);
  void* const receiver_ = zmq_socket(context_, ZMQ_PAIR);
  std::thread thread_;
};

// Messages a second.
double flood(Way& way) {
  std::atomic<std::int64_t> done = 0;  // written by the receiver
  way.received = [&](std::int64_t number) { done.store(number + 1, std::memory_order_release); };
  const auto begin = now();
  for (std::int64_t i = 0; i < kFlood; ++i) {
    // Looked at seldom, as to look costs both.
    while (i % 256 == 0 && i - done.load(std::memory_order_acquire) >= kWindow) {
      std::this_thread::yield();
    }
    way.send(i);
  }
  while (done != kFlood) {
    std::this_thread::yield();
  }
  return static_cast<double>(kFlood) * 1e9 / static_cast<double>(now() - begin);
}

// Microseconds from before the send to the receiver, the median.
double single(Way& way) {
  std::vector<double> times;
  std::atomic<int> done = 0;  // written by the receiver, which is the one that fills times
  way.received = [&](std::int64_t sent) {
    times.push_back(static_cast<double>(now() - sent) / 1e3);
    ++done;
  };
  for (int i = 0; i < kSingles; ++i) {
    std::this_thread::sleep_for(kRest);
    way.send(now());
    while (done <= i) {
      std::this_thread::sleep_for(kRest);
    }
  }
  return median(times);
}

}  // namespace

int main() {
  Bus bus;
  Bare bare;
  ZeroMq zero_mq;
  struct Figures {
    std::vector<double> flood;
    std::vector<double> single;
  } of_bus, of_bare, of_zero_mq;
  // Turn by turn, so that what else the machine does falls on all of them.
  for (int run = 0; run < kRuns; ++run) {
    for (auto [way, figures] : {std::pair<Way*, Figures*>{&bus, &of_bus}, {&bare, &of_bare}, {&zero_mq, &of_zero_mq}}) {
      figures->flood.push_back(flood(*way));
      figures->single.push_back(single(*way));
    }
  }
  if (refhost::bus_counters().dropped != 0 || refhost::bus_counters().failures != 0) {
    std::fputs("bench: the bus dropped messages\n", stderr);
    return 1;
  }
  const auto million = [](double rate) { return number(rate / 1e6, 2) + " M/s"; };
  const auto bus_rate = median(of_bus.flood);
  print_row("bus: messages of five fields from one thread to another", million(bus_rate), "", "at least 3 M/s");
  print_row("the same content through ZeroMQ inproc", million(median(of_zero_mq.flood)),
            ratio_of(bus_rate, median(of_zero_mq.flood)));
  print_row("the same through a queue with mutex and condition variable", million(median(of_bare.flood)),
            ratio_of(bus_rate, median(of_bare.flood)));
  const auto micro = [](double time) { return number(time) + " µs"; };
  const auto bus_time = median(of_bus.single);
  print_row("bus: one message to a thread that sleeps", micro(bus_time));
  print_row("the same through ZeroMQ inproc", micro(median(of_zero_mq.single)),
            ratio_of(bus_time, median(of_zero_mq.single)), "ratio at most 1");
  print_row("the same through a queue with mutex and condition variable", micro(median(of_bare.single)),
            ratio_of(bus_time, median(of_bare.single)));
  return 0;
}
