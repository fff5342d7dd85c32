#include "terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cli/text_table.h"
#include "failure.h"

namespace uhfctl {

namespace {

// Written by the signal handler, read by the program's only thread.
volatile std::sig_atomic_t interrupts = 0;

}  // namespace

void print(const std::string& text) {
  for (std::size_t written = 0; written < text.size();) {
    const auto count = write(STDOUT_FILENO, text.data() + written, text.size() - written);
    if (count < 0 && errno == EPIPE) {
      std::exit(kDone);
    }
    if (count < 0 && errno != EINTR) {
      throw Failure(kFailed, std::string("standard output cannot be written: ") + std::strerror(errno));
    }
    written += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
  }
}

void print(const nlohmann::ordered_json& object) { print(object.dump() + "\n"); }

void note(const std::string& text) { std::fputs(("uhfctl: " + text + "\n").c_str(), stderr); }

bool is_terminal() { return isatty(STDOUT_FILENO) != 0; }
bool notes_are_seen() { return isatty(STDERR_FILENO) != 0; }

namespace {

TerminalSize size_of(int terminal) {
  winsize size{};
  if (ioctl(terminal, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
    return {};
  }
  return {.columns = size.ws_col, .rows = size.ws_row};
}

}  // namespace

TerminalSize terminal_size() { return size_of(STDOUT_FILENO); }

bool can_be_redrawn() {
  const char* const kind = std::getenv("TERM");
  return is_terminal() && kind != nullptr && std::strcmp(kind, "dumb") != 0;
}

std::string coloured(Colour colour, const std::string& text) {
  constexpr const char* kCodes[] = {"\033[32m", "\033[33m", "\033[31m", "\033[1m", "\033[90m"};
  const char* const no_color = std::getenv("NO_COLOR");
  const bool wanted = is_terminal() && (no_color == nullptr || *no_color == '\0');
  return wanted ? kCodes[static_cast<std::size_t>(colour)] + text + "\033[0m" : text;
}

std::string table(const std::vector<std::vector<std::string>>& rows) { return achost::aligned(rows); }

void progress(const std::string& text) {
  if (notes_are_seen()) {
    // One that is folded would leave its first lines behind.
    std::fputs(("\r\033[K" + text.substr(0, size_of(STDERR_FILENO).columns - 1)).c_str(), stderr);
  }
}

void catch_interrupts() {
  struct sigaction action {};
  // A wait on the line ends, also one that begins just now: once more after each second.
  action.sa_handler = [](int) {
    interrupts = 1;
    alarm(1);
  };
  sigaction(SIGALRM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  struct sigaction hang_up {};
  sigaction(SIGHUP, nullptr, &hang_up);
  if (hang_up.sa_handler != SIG_IGN) {  // a closed terminal, but not under nohup
    sigaction(SIGHUP, &action, nullptr);
  }
  std::signal(SIGPIPE, SIG_IGN);
}

bool interrupted() { return interrupts != 0; }

std::string seconds(std::chrono::nanoseconds time, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, std::chrono::duration<double>(time).count());
  return text;
}

}  // namespace uhfctl
