#include "reader_end.h"

#include <poll.h>

#include <thread>

#include "notice.h"

std::int64_t ReaderEnd::answer(int tag) {
  for (std::size_t received = 0; received < kCommandSize;) {
    pollfd command{.fd = link_.fd(), .events = POLLIN, .revents = 0};
    poll(&command, 1, -1);
    received += link_.read().size();
  }
  std::this_thread::sleep_for(std::chrono::microseconds(500));  // the other end waits in its read by now
  const auto answer = notice(tag);
  const auto sent = now();
  link_.write(answer);
  return sent;
}
