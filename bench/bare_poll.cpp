#include "bare_poll.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "line/terminal.h"
#include "outside.h"

namespace {

// Passes on what is there, to the other one.
void pass(int from, int to) {
  std::array<unsigned char, 4096> bytes;
  const auto count = read(from, bytes.data(), bytes.size());
  if (count > 0 && write(to, bytes.data(), static_cast<std::size_t>(count)) < 0) {
    _exit(1);
  }
}

}  // namespace

void poll_barely(const std::string& port, std::size_t answer_size) {
  const int line = open(port.c_str(), O_RDWR | O_NOCTTY);
  std::thread([] {
    std::mutex mutex;
    std::condition_variable readings;
    for (std::unique_lock lock(mutex);;) {
      readings.wait_until(lock, std::chrono::steady_clock::now() + std::chrono::milliseconds(10));
    }
  }).detach();
  for (;;) {
    usleep(10'000);
    if (write(line, kInventoryCommand.data(), kInventoryCommand.size()) < 0) {
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

void poll_barely_through_a_relay(const std::string& port, std::size_t answer_size) {
  const int line = open(port.c_str(), O_RDWR | O_NOCTTY);
  const line::Terminal terminal;
  std::thread([line, client = terminal.fd()] {
    for (;;) {
      std::array<pollfd, 2> ends{
          {{.fd = line, .events = POLLIN, .revents = 0}, {.fd = client, .events = POLLIN, .revents = 0}}};
      poll(ends.data(), ends.size(), -1);
      if (ends[0].revents != 0) {
        pass(line, client);
      }
      if (ends[1].revents != 0) {
        pass(client, line);
      }
    }
  }).detach();
  poll_barely(terminal.path(), answer_size);
}
