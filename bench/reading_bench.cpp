// One reading's way: from the last byte of the reader's answer to the host's handler of the identification, through the
// plug-in's threads and the host's bus. Beside it the bare chain of the same threads: a blocking read, a condition
// variable, a queue, and nothing done in between. Each in processes of its own, turn by turn.
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "ac/message.h"
#include "globals.h"
#include "notice.h"
#include "reading_loop.h"
#include "refhost/subscriber.h"
#include "settings.h"
#include "store.h"
#include "t640.h"
#include "table.h"
#include "uhfsim/pty_link.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRuns = 7;
constexpr int kReadings = 300;  // of a run
constexpr std::size_t kCommandSize = 7;
constexpr std::size_t kNoticeSize = 24;
constexpr std::chrono::milliseconds kProbeInterval{2};

std::int64_t now() { return Clock::now().time_since_epoch().count(); }

// One reading's times after the answer was sent, in microseconds.
struct Times {
  double read = 0;     // the plug-in's read has returned
  double decided = 0;  // the dispatch is about to announce it
  double handled = 0;  // the host's handler has it
};

// When these happened last; each written by the thread that it happens on, which hands the reading over afterwards.
std::atomic<std::int64_t> read_at = 0;
std::atomic<std::int64_t> decided_at = 0;

}  // namespace

// The linker sends two calls of the plug-in here (--wrap): the read, and the first of the announcement.
extern "C" ssize_t __real_read(int file, void* data, std::size_t size);
extern "C" ssize_t __wrap_read(int file, void* data, std::size_t size) {
  const auto count = __real_read(file, data, size);
  read_at = now();
  return count;
}

std::string real_uuid() __asm__("__real__ZN2ac4util10identifier17generate_new_uuidB5cxx11Ev");
std::string wrapped_uuid() __asm__("__wrap__ZN2ac4util10identifier17generate_new_uuidB5cxx11Ev");
std::string wrapped_uuid() {
  decided_at = now();
  return real_uuid();
}

namespace {

// The reader's end of the line. Answers one command after the other, each with a new tag, and takes the time from the
// answer to arrived().
class Reader {
 public:
  const std::string& path() const { return link_.path(); }

  // Called on the thread that the reading arrives at.
  void arrived() {
    arrived_.store(now());
    arrived_.notify_one();
  }

  std::vector<Times> measure() {
    std::vector<Times> times;
    for (int i = 1; i <= kReadings; ++i) {
      for (std::size_t received = 0; received < kCommandSize;) {
        pollfd command{.fd = link_.fd(), .events = POLLIN, .revents = 0};
        poll(&command, 1, -1);
        received += link_.read().size();
      }
      std::this_thread::sleep_for(std::chrono::microseconds(500));  // the other end waits in its read by now
      const auto answer = notice(i);
      arrived_ = 0;
      const auto sent = now();
      link_.write(answer);
      arrived_.wait(0);
      const auto since = [sent](std::int64_t at) { return static_cast<double>(at - sent) / 1e3; };
      times.push_back({.read = since(read_at), .decided = since(decided_at), .handled = since(arrived_)});
    }
    return times;
  }

 private:
  uhfsim::PtyLink link_;
  std::atomic<std::int64_t> arrived_ = 0;  // when; written by two threads that take turns
};

// Ends a process that measured: its other threads never do.
[[noreturn]] void report(int pipe, const std::vector<Times>& times) {
  const auto size = times.size() * sizeof(Times);
  _exit(write(pipe, times.data(), size) == static_cast<ssize_t>(size) ? 0 : 1);
}

[[noreturn]] void through_plugin(int pipe) {
  Reader reader;
  Store store;
  store->override_for_run("uhf", "probe_interval", std::to_string(kProbeInterval.count()));
  uhf_operation_mode_ = CONTINUOUS;
  same_tag_timeout_ = 1000;
  different_tag_timeout_ = 0;
  watchdogTimeout = 1000;
  t640_module = std::make_unique<ac::UHF::T640>(reader.path(), std::chrono::milliseconds(1000));
  const refhost::Subscriber subscriber(
      "bench",
      {{.type = "identifier_new_card", .handler = [&reader](ac::Message*) { reader.arrived(); }, .flag = false}});
  std::thread(run).detach();
  report(pipe, reader.measure());
}

// A value that one thread hands to another.
class Queue {
 public:
  void put(int value) {
    {
      const std::lock_guard lock(mutex_);
      values_.push_back(value);
    }
    filled_.notify_one();
  }

  int take() {
    std::unique_lock lock(mutex_);
    filled_.wait(lock, [this] { return !values_.empty(); });
    const int value = values_.front();
    values_.pop_front();
    return value;
  }

 private:
  std::mutex mutex_;  // guards values_
  std::condition_variable filled_;
  std::deque<int> values_;
};

[[noreturn]] void through_bare_chain(int pipe) {
  Reader reader;
  const int line = open(reader.path().c_str(), O_RDWR | O_NOCTTY);
  Queue cards;
  Queue messages;
  std::thread([&] {
    for (;;) {
      std::this_thread::sleep_for(kProbeInterval);
      std::array<unsigned char, 1024> bytes{};
      if (write(line, bytes.data(), kCommandSize) != kCommandSize) {
        _exit(1);
      }
      for (std::size_t received = 0; received < kNoticeSize;) {
        received += static_cast<std::size_t>(std::max<ssize_t>(read(line, bytes.data(), bytes.size()), 0));
      }
      cards.put(1);
    }
  }).detach();
  std::thread([&] {
    for (;;) {
      messages.put(cards.take());
    }
  }).detach();
  std::thread([&] {
    for (;;) {
      messages.take();
      reader.arrived();
    }
  }).detach();
  report(pipe, reader.measure());
}

// What measure() reports, from a process of its own.
std::vector<Times> in_aprocess(void (*measure)(int)) {
  std::array<int, 2> pipe_ends{};
  if (pipe(pipe_ends.data()) != 0) {
    throw std::runtime_error("no pipe");
  }
  const pid_t child = fork();
  if (child == 0) {
    measure(pipe_ends[1]);
  }
  close(pipe_ends[1]);
  std::vector<Times> times(kReadings);
  const auto size = static_cast<ssize_t>(times.size() * sizeof(Times));
  const bool whole = read(pipe_ends[0], times.data(), static_cast<std::size_t>(size)) == size;
  close(pipe_ends[0]);
  waitpid(child, nullptr, 0);
  if (!whole) {
    throw std::runtime_error("a measuring process ended early");
  }
  return times;
}

// The runs' medians of one of the times, and what 99 of 100 stay below.
struct Figures {
  std::vector<double> medians;
  std::vector<double> tails;

  void add(const std::vector<Times>& times, double Times::*which) {
    std::vector<double> values;
    for (const auto& time : times) {
      values.push_back(time.*which);
    }
    medians.push_back(median(values));
    tails.push_back(quantile(values, 0.99));
  }
};

}  // namespace

int main() {
  Figures read;
  Figures decided;
  Figures handled;
  Figures bare;
  for (int i = 0; i < kRuns; ++i) {
    const auto times = in_aprocess(through_plugin);
    read.add(times, &Times::read);
    decided.add(times, &Times::decided);
    handled.add(times, &Times::handled);
    bare.add(in_aprocess(through_bare_chain), &Times::handled);
  }
  const auto micro = [](const std::vector<double>& times) { return number(median(times)) + " µs"; };
  const auto ratio = [](const std::vector<double>& times, const std::vector<double>& reference) {
    return ratio_of(median(times), median(reference));
  };
  print_row("from the reader's last byte to the host's handler, median", micro(handled.medians),
            ratio(handled.medians, bare.medians), "ratio 1.25");
  print_row("the same through a bare chain of threads, median", micro(bare.medians));
  print_row("of it until the plug-in has read it", micro(read.medians), ratio(read.medians, handled.medians));
  print_row("of it until the dispatch announces it", micro(decided.medians), ratio(decided.medians, handled.medians));
  print_row("from the reader's last byte to the host's handler, 99 of 100", micro(handled.tails),
            ratio(handled.tails, bare.tails), "ratio 2");
  print_row("the same through a bare chain of threads, 99 of 100", micro(bare.tails));
  return 0;
}
