#include "bare_chain.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <thread>

BareChain::BareChain() {
  std::thread([this] { poll_reader(); }).detach();
  for (std::size_t i = 0; i < queues_.size(); ++i) {
    std::thread([this, i] { hand_on(i); }).detach();
  }
}

double BareChain::measure(int tag) {
  arrived_.reset();
  const auto sent = reader_.answer(tag);
  return static_cast<double>(arrived_.wait() - sent) / 1e3;
}

void BareChain::poll_reader() {
  const int line = open(reader_.path().c_str(), O_RDWR | O_NOCTTY);
  for (;;) {
    std::this_thread::sleep_for(kProbeInterval);
    std::array<unsigned char, 1024> bytes{};
    if (write(line, bytes.data(), kCommandSize) != kCommandSize) {
      std::abort();
    }
    for (std::size_t received = 0; received < kNoticeSize;) {
      received += static_cast<std::size_t>(std::max<ssize_t>(read(line, bytes.data(), bytes.size()), 0));
    }
    queues_.front().put(1);
  }
}

void BareChain::hand_on(std::size_t from) {
  for (;;) {
    const int value = queues_.at(from).take();
    if (from + 1 < queues_.size()) {
      queues_.at(from + 1).put(value);
    } else {
      arrived_.come();
    }
  }
}
