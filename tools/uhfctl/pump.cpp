#include "pump.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <optional>
#include <system_error>
#include <utility>

#include "line/conversation.h"
#include "line/outbox.h"

namespace uhfctl {

namespace {

using line::ByteView;

// What is there to be read; nothing when there will be no more.
std::optional<ByteView> read_some(int fd, std::span<std::uint8_t> buffer) {
  const ssize_t count = read(fd, buffer.data(), buffer.size());
  if (count > 0) {
    return buffer.first(static_cast<std::size_t>(count));
  }
  const bool may_go_on = count < 0 && (errno == EAGAIN || errno == EINTR);
  return may_go_on ? std::optional(ByteView()) : std::nullopt;
}

short wanted(const line::Outbox& outbox) { return static_cast<short>(POLLIN | (outbox.is_waiting() ? POLLOUT : 0)); }

}  // namespace

Pump::Pump(int other_end) : other_end_(other_end), wake_(eventfd(0, EFD_CLOEXEC)) {
  line::Terminal terminal;
  path_ = terminal.path();
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);  // Ctrl-C is for the program's first thread
  thread_ = std::thread([this, terminal = std::move(terminal)]() mutable { pass(std::move(terminal)); });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

Pump::~Pump() {
  eventfd_write(wake_.get(), 1);
  thread_.join();
}

void Pump::pass(line::Terminal terminal) {
  line::Conversation conversation;
  line::Outbox to_reader(line::kLongestAnswer);
  line::Outbox to_driver(line::kLongestAnswer);
  std::array<std::uint8_t, 4096> buffer;
  try {
    for (;;) {
      std::array<pollfd, 3> fds = {{{.fd = wake_.get(), .events = POLLIN, .revents = 0},
                                    {.fd = other_end_, .events = wanted(to_reader), .revents = 0},
                                    {.fd = terminal.fd(), .events = wanted(to_driver), .revents = 0}}};
      poll(fds.data(), fds.size(), -1);
      if (fds[0].revents != 0) {
        return;
      }
      if (fds[1].revents != 0) {
        to_reader.go_on(other_end_);
        const auto bytes = read_some(other_end_, buffer);
        if (!bytes.has_value()) {
          break;
        }
        to_driver.send(terminal.fd(), bytes->first(conversation.take(line::Clock::now(), *bytes)));
      }
      if (fds[2].revents != 0) {
        to_driver.go_on(terminal.fd());
        if (const auto bytes = read_some(terminal.fd(), buffer); bytes.has_value() && !bytes->empty()) {
          conversation.ask(line::Clock::now(), *bytes);
          to_reader.send(other_end_, *bytes);
        }
      }
    }
  } catch (const std::system_error&) {  // the other end has gone
  }
  over_ = true;
}

}  // namespace uhfctl
