#include "door/run/ending.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>

namespace achost {
namespace {

using std::chrono::steady_clock;

// An eventfd that becomes readable when the run is to end. A signal handler reaches nothing but a global.
int wake_fd = -1;

void wake(int /*signal*/) {
  const int saved_errno = errno;
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(wake_fd, &one, sizeof one);
  errno = saved_errno;
}

void handle(int signal, void (*handler)(int), int flags) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = flags | SA_RESTART;
  sigaction(signal, &action, nullptr);
}

int poll_timeout(const std::optional<steady_clock::time_point>& deadline) {
  constexpr std::int64_t kLongest = 3600000;  // poll takes an int; who waits longer polls again
  if (!deadline.has_value()) {
    return -1;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - steady_clock::now()).count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, kLongest));
}

}  // namespace

Ending::Ending() {
  wake_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (wake_fd < 0) {
    throw std::system_error(errno, std::generic_category(), "eventfd");
  }
  handle(SIGINT, wake, static_cast<int>(SA_RESETHAND));
  handle(SIGTERM, wake, static_cast<int>(SA_RESETHAND));
  handle(SIGHUP, wake, static_cast<int>(SA_RESETHAND));  // the terminal has been closed
  // Handled and not ignored: a handler does not pass on to the commands that a plug-in runs.
  handle(
      SIGPIPE, [](int) {}, 0);
}

void Ending::request(Outcome outcome) {
  {
    const std::lock_guard lock(mutex_);
    if (!requested_.has_value()) {
      requested_ = std::move(outcome);
    }
  }
  wake(0);
}

Ending::Outcome Ending::outcome() {
  const std::lock_guard lock(mutex_);
  return requested_.value_or(Outcome{});
}

Ending::Outcome Ending::wait(std::optional<steady_clock::time_point> deadline) {
  // Of standard output only its end is of interest, which needs no asking for.
  const int output = fcntl(STDOUT_FILENO, F_GETFD) < 0 ? -1 : STDOUT_FILENO;
  std::array<pollfd, 2> watched = {{{wake_fd, POLLIN, 0}, {output, 0, 0}}};
  while (!deadline.has_value() || steady_clock::now() < *deadline) {
    if (poll(watched.data(), watched.size(), poll_timeout(deadline)) <= 0) {
      continue;
    }
    if (watched[0].revents != 0) {
      break;
    }
    if ((watched[1].revents & (POLLERR | POLLHUP)) != 0) {
      return {.status = kDone, .reason = "", .output_gone = true};
    }
  }
  return outcome();
}

}  // namespace achost
