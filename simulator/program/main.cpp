#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <exception>
#include <iostream>
#include <optional>
#include <system_error>

#include "console.h"
#include "device_link.h"
#include "settings.h"
#include "stop_signals.h"

namespace uhfsim {

namespace {

using Deadline = std::optional<Clock::time_point>;

Deadline deadline_after(std::optional<double> seconds) {
  if (!seconds) return std::nullopt;
  return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*seconds));
}

// For poll(): milliseconds, rounded up, -1 without end. A wait too long for it is cut; the caller looks again.
int until_deadline(const Deadline& deadline) {
  if (!deadline) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now()).count();
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, 3'600'000));
}

// Takes what standard input has. After its end, which ends the program only at a terminal, it is no longer looked at.
// Returns false when the program is to end.
bool take_input(Console& console, pollfd& input) {
  char text[4096];
  const ssize_t count = read(input.fd, text, sizeof(text));
  if (count > 0) return console.feed({text, static_cast<std::size_t>(count)});
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) return true;
  const bool terminal = isatty(input.fd) != 0;
  input.fd = -1;
  return console.finish() && !terminal;
}

void serve(Console& console, const StopSignals& signals, const Deadline& deadline) {
  std::array<pollfd, 2> awaited{{{signals.fd(), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
  while (!deadline || Clock::now() < *deadline) {
    if (poll(awaited.data(), awaited.size(), until_deadline(deadline)) < 0 && errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "waiting for commands");
    }
    if (awaited[0].revents != 0) return;
    if (awaited[1].revents != 0 && !take_input(console, awaited[1])) return;
  }
}

void run(const Settings& settings) {
  const StopSignals signals;
  std::optional<DeviceLink> link;
  if (settings.link) link.emplace(*settings.link);
  Options options = settings.reader;
  options.on_hang_up = [&link](const std::string& path) {
    if (link) link->point_to(path);
    std::cerr << "uhf-sim: the line has hung up and is back at " + path + "\n" << std::flush;
  };
  SimulatedReader reader(std::move(options));
  for (const Command& fault : settings.faults) apply(fault, reader.field(), reader.faults());
  if (link) link->point_to(reader.path());
  const Deadline deadline = deadline_after(settings.seconds);
  if (settings.scenario) reader.play(*settings.scenario);
  std::cout << reader.path() << std::endl;
  Console console(reader, std::cout, std::cerr);
  serve(console, signals, deadline);
}

}  // namespace

}  // namespace uhfsim

int main(int argc, char** argv) {
  int status = uhfsim::kExitDone;
  const auto settings = uhfsim::read_command_line(argc, argv, status);
  if (!settings) return status;
  try {
    uhfsim::run(*settings);
    return uhfsim::kExitDone;
  } catch (const std::exception& error) {
    std::cerr << "uhf-sim: " << error.what() << std::endl;
    return uhfsim::kExitFailed;
  }
}
