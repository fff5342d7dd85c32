#include "outside.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

void Reader::set_tags(int tags) {
  field_.clear();
  for (int tag = 1; tag <= tags; ++tag) {
    field_.add({.epc = {0xE2, 0, 0, 0, 0, 0, 0, 0, 0, 0, static_cast<std::uint8_t>(tag / 256),
                        static_cast<std::uint8_t>(tag)}});
  }
}

bool Reader::answer() {
  const auto received = link_.read();
  for (const auto& reply : engine_.feed(received)) {
    link_.write(reply);
  }
  return received.size() > 2 && received[2] == kInventoryCommand[2];
}

std::size_t Reader::answer_size() {
  std::size_t size = 0;
  for (const auto& reply : engine_.feed({kInventoryCommand.begin(), kInventoryCommand.end()})) {
    size += reply.size();
  }
  return size;
}

void serve(Reader& first, Reader& second, std::chrono::steady_clock::time_point until) {
  while (std::chrono::steady_clock::now() < until) {
    std::array<pollfd, 2> lines{first.line(), second.line()};
    poll(lines.data(), lines.size(), 100);
    first.answer();
    second.answer();
  }
}

namespace {

std::vector<std::string> words_of(const std::string& program, const std::string& state, const std::string& port,
                                  const std::vector<std::string>& options) {
  std::vector<std::string> words{program, "run", "--state", state, "--port", port, "--set", "probe_interval=10"};
  words.insert(words.end(), options.begin(), options.end());
  return words;
}

}  // namespace

Process::Process(const std::string& program, const std::string& state, const std::string& port,
                 const std::vector<std::string>& options)
    : Process(words_of(program, state, port, options)) {}

Process::Process(std::vector<std::string> words) {
  std::vector<char*> arguments;
  std::ranges::transform(words, std::back_inserter(arguments), [](std::string& word) { return word.data(); });
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  if (posix_spawn(&id_, words[0].c_str(), &actions, nullptr, arguments.data(), environ) != 0) {
    throw std::runtime_error("cannot start " + words[0]);
  }
  posix_spawn_file_actions_destroy(&actions);
}

Process::Process(void (*work)(const std::string& port, std::size_t answer_size), const std::string& port,
                 std::size_t answer_size)
    : id_(fork()) {
  if (id_ == 0) {
    work(port, answer_size);
  }
}

Process::~Process() {
  kill(id_, SIGTERM);
  waitpid(id_, nullptr, 0);
}

double Process::cpu() const {
  clockid_t clock{};
  timespec time{};
  if (clock_getcpuclockid(id_, &clock) != 0 || clock_gettime(clock, &time) != 0) {
    throw std::runtime_error("achost has ended early");
  }
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

std::map<std::string, double> Process::cpu_of_threads() const {
  std::map<std::string, double> threads;
  for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(id_) + "/task")) {
    std::string name;
    double nanoseconds = 0;
    std::getline(std::ifstream(task.path() / "comm"), name);
    std::ifstream(task.path() / "schedstat") >> nanoseconds;
    threads[name] += nanoseconds / 1e9;
  }
  return threads;
}

double Process::resident_memory() const {
  std::ifstream file("/proc/" + std::to_string(id_) + "/status");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("VmRSS:")) {
      return std::stod(line.substr(6));
    }
  }
  throw std::runtime_error("achost has ended early");
}
