#include "last_words.h"

#include <unistd.h>

#include <array>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "report.h"

namespace hostcheck {
namespace {

std::terminate_handler earlier_handler = nullptr;  // set before the threads of the check begin

[[noreturn]] void tell_of_uncaught() {
  report().found_in_all_under_examination("an exception was caught by nobody, so that the process ends");
  report().finish();
  earlier_handler();
  std::abort();
}

// The signals of a crash. Nothing but what a signal handler may do; the process then ends by the signal.
void tell_of_crash(int number) {
  std::array<char, 256> line{};
  const int length =
      std::snprintf(line.data(), line.size(), "hostcheck: signal %d ended the process while clause %s was examined\n",
                    number, report().current());
  if (write(STDERR_FILENO, line.data(), static_cast<std::size_t>(length)) < 0) {
    return;  // it ends all the same
  }
}

// The end that is set for the process. Never destroyed.
struct Deadline {
  std::mutex mutex;  // guards all below
  std::condition_variable changed;
  std::chrono::steady_clock::time_point at;
  std::string finding;
  bool has_thread = false;
};

Deadline& deadline() {
  static Deadline& deadline = *new Deadline;
  return deadline;
}

[[noreturn]] void wait_for_deadline() {
  auto& set = deadline();
  std::unique_lock lock(set.mutex);
  while (std::chrono::steady_clock::now() < set.at) {
    set.changed.wait_until(lock, set.at);
  }
  report().found_in_all_under_examination(set.finding);
  report().leave_the_rest_out("the host hung before");
  report().finish();
  _exit(1);
}

}  // namespace

void tell_of_the_end() {
  earlier_handler = std::set_terminate(tell_of_uncaught);
  struct sigaction action {};
  action.sa_handler = tell_of_crash;
  action.sa_flags = static_cast<int>(SA_RESETHAND);  // so that it ends by the signal when its instruction comes again
  for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) {
    sigaction(number, &action, nullptr);
  }
}

void end_after(int seconds, const char* finding) {
  auto& set = deadline();
  const std::lock_guard lock(set.mutex);
  set.at = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  set.finding = finding;
  set.changed.notify_all();
  if (!std::exchange(set.has_thread, true)) {
    std::thread(wait_for_deadline).detach();
  }
}

}  // namespace hostcheck
