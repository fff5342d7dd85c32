// achost with uhf.so, seen from outside: how soon it polls, what it takes of a core and of the memory. The reader's end
// of the line answers at once.
//
//   uhf-bench-process ACHOST [SECONDS [kTags]]
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "store.h"
#include "table.h"
#include "uhfsim/field.h"
#include "uhfsim/pty_link.h"
#include "uhfsim/reader.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kStarts = 11;
constexpr unsigned char kInventory = 0x22;
constexpr std::array<unsigned char, 7> kCommand{0x7F, 0x00, kInventory, 0x00, 0x00, 0x22, 0x7E};

// A reader that is done with a command as soon as it has it.
class Reader {
 public:
  explicit Reader(int tags) {
    for (int tag = 1; tag <= tags; ++tag) {
      field_.add({.epc = {0xE2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, static_cast<std::uint8_t>(tag)}});
    }
  }

  const std::string& path() const { return link_.path(); }

  pollfd line() const { return {.fd = link_.fd(), .events = POLLIN, .revents = 0}; }

  // Answers what has come; true when that was an inventory.
  bool answer() {
    const auto received = link_.read();
    for (const auto& reply : engine_.feed(received)) {
      link_.write(reply);
    }
    return received.size() > 2 && received[2] == kInventory;
  }

  // Bytes of the answer to an inventory.
  std::size_t answer_size() {
    std::size_t size = 0;
    for (const auto& reply : engine_.feed({kCommand.begin(), kCommand.end()})) {
      size += reply.size();
    }
    return size;
  }

 private:
  uhfsim::PtyLink link_;
  uhfsim::Field field_;
  uhfsim::Reader engine_{field_, {}};
};

// Answers on both lines until the time is over.
void serve(Reader& first, Reader& second, Clock::time_point until) {
  while (Clock::now() < until) {
    std::array<pollfd, 2> lines{first.line(), second.line()};
    poll(lines.data(), lines.size(), 100);
    first.answer();
    second.answer();
  }
}

// What nobody can do without who polls every 10 ms and looks at the readings on another thread: a pause, a write and
// reads of the whole answer, and a timed wait. Never returns.
[[noreturn]] void poll_barely(const std::string& port, std::size_t answer_size) {
  const int line = open(port.c_str(), O_RDWR | O_NOCTTY);
  std::thread([] {
    std::mutex mutex;
    std::condition_variable readings;
    for (std::unique_lock lock(mutex);;) {
      readings.wait_until(lock, Clock::now() + std::chrono::milliseconds(10));
    }
  }).detach();
  for (;;) {
    usleep(10'000);
    if (write(line, kCommand.data(), kCommand.size()) < 0) {
      _exit(1);
    }
    std::array<unsigned char, 4096> answer{};
    for (std::size_t received = 0; received < answer_size;) {
      const auto count = read(line, answer.data(), answer.size());
      if (count <= 0) {
        _exit(1);
      }
      received += static_cast<std::size_t>(count);
    }
  }
}

// Another process on the reader's line, until the object's end.
class Process {
 public:
  // achost, with what it prints thrown away.
  Process(const std::string& program, const std::string& state, const std::string& port) {
    std::vector<std::string> words{program, "run", "--state", state, "--port", port, "--set", "probe_interval=10"};
    std::vector<char*> arguments;
    std::ranges::transform(words, std::back_inserter(arguments), [](std::string& word) { return word.data(); });
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    if (posix_spawn(&id_, program.c_str(), &actions, nullptr, arguments.data(), environ) != 0) {
      throw std::runtime_error("cannot start " + program);
    }
    posix_spawn_file_actions_destroy(&actions);
  }
  // The bare one.
  Process(const std::string& port, std::size_t answer_size) : id_(fork()) {
    if (id_ == 0) {
      poll_barely(port, answer_size);
    }
  }
  ~Process() {
    kill(id_, SIGTERM);
    waitpid(id_, nullptr, 0);
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  // Seconds of a core so far.
  double cpu() const {
    clockid_t clock{};
    timespec time{};
    if (clock_getcpuclockid(id_, &clock) != 0 || clock_gettime(clock, &time) != 0) {
      throw std::runtime_error("achost has ended early");
    }
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
  }

  // kB.
  double resident_memory() const {
    std::ifstream file("/proc/" + std::to_string(id_) + "/status");
    for (std::string line; std::getline(file, line);) {
      if (line.starts_with("VmRSS:")) {
        return std::stod(line.substr(6));
      }
    }
    throw std::runtime_error("achost has ended early");
  }

 private:
  pid_t id_ = 0;
};

std::string time_to_first_poll(const std::string& program, const std::string& state) {
  std::vector<double> times;
  for (int i = 0; i < kStarts; ++i) {
    Reader reader(1);
    const auto begin = Clock::now();
    const Process process(program, state, reader.path());
    pollfd line = reader.line();
    do {
      if (poll(&line, 1, 10'000) == 0) {
        throw std::runtime_error("achost does not poll");
      }
    } while (!reader.answer());
    times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - begin).count());
  }
  return number(median(times)) + " ms";
}

// Both poll at the same time, each its own reader, so that what else the machine does falls on both.
void poll(const std::string& program, const std::string& state, int tags, std::chrono::seconds time) {
  Reader reader_of_bare(tags);
  Reader reader(tags);
  const Process bare_process(reader_of_bare.path(), Reader(tags).answer_size());
  const Process process(program, state, reader.path());
  serve(reader, reader_of_bare, Clock::now() + std::chrono::seconds(2));
  const double memory_before = process.resident_memory();
  const double before = process.cpu();
  const double bare_before = bare_process.cpu();
  serve(reader, reader_of_bare, Clock::now() + time);
  const auto percent = [time](double seconds) { return 100 * seconds / static_cast<double>(time.count()); };
  const double achost = percent(process.cpu() - before);
  const double bare = percent(bare_process.cpu() - bare_before);
  const double memory = process.resident_memory();
  const std::string field = ", " + std::to_string(tags) + (tags == 1 ? " tag" : " tags") + " in the field";
  print_row("achost polling every 10 ms" + field, number(achost, 2) + " % of a core", ratio_of(achost, bare),
            tags <= 1 ? "0.5 %" : "");
  print_row("the same poll and nothing done with it" + field, number(bare, 2) + " % of a core");
  print_row("resident memory of achost" + field,
            number(memory / 1024, 2) + " MB, " + number(memory - memory_before, 0) + " kB more than at the beginning",
            "", "12 MB");
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (words.empty() || words.size() > 3) {
    std::fputs("usage: uhf-bench-process ACHOST [SECONDS [TAGS]]\n", stderr);
    return 2;
  }
  const std::chrono::seconds time(words.size() > 1 ? std::stol(words[1]) : 10);
  const auto fields = words.size() > 2 ? std::vector{std::stoi(words[2])} : std::vector{0, 1, 50};
  const TemporaryDirectory state;
  print_row("from the start of achost to the first poll", time_to_first_poll(words[0], state.path()), "", "50 ms");
  for (const int tags : fields) {
    poll(words[0], state.path(), tags, time);
  }
  return 0;
}
