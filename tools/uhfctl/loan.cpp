#include "loan.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include "failure.h"
#include "line/outbox.h"

namespace uhfctl {

namespace {

constexpr std::size_t kMostWaiting = 65'536;  // bytes, each way

Connection borrowed(const Door& door, const std::string& who) {
  door.check_reader();
  auto connection = door.connect();
  connection.ask({{"command", "borrow"}, {"who", who}});
  return connection;
}

// Passes on what is there; false when there will be nothing more.
bool pass_on(int from, line::Outbox& outbox, int to) {
  std::array<std::uint8_t, 4096> buffer;
  const ssize_t count = read(from, buffer.data(), buffer.size());
  if (count > 0) {
    outbox.send(to, line::ByteView(buffer).first(static_cast<std::size_t>(count)));
  }
  return count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR));
}

short wanted(const line::Outbox& outbox) { return static_cast<short>(POLLIN | (outbox.is_waiting() ? POLLOUT : 0)); }

}  // namespace

Loan::Loan(const Door& door, const std::string& who)
    : lender_(door.name()), connection_(borrowed(door, who)), wake_(eventfd(0, EFD_CLOEXEC)) {
  fcntl(connection_.socket(), F_SETFL, O_NONBLOCK);
  line::Terminal terminal;
  path_ = terminal.path();
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);  // Ctrl-C is for the program's first thread
  thread_ = std::thread([this, terminal = std::move(terminal)]() mutable { pass(std::move(terminal)); });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

Loan::~Loan() {
  eventfd_write(wake_.get(), 1);
  thread_.join();
  if (!taken_back_) {
    shutdown(connection_.socket(), SHUT_WR);
    wait_for_the_end();
  }
}

void Loan::pass(line::Terminal terminal) {
  const int socket = connection_.socket();
  line::Outbox to_door(kMostWaiting);
  line::Outbox to_driver(kMostWaiting);
  try {
    for (;;) {
      std::array<pollfd, 3> fds = {{{.fd = wake_.get(), .events = POLLIN, .revents = 0},
                                    {.fd = socket, .events = wanted(to_door), .revents = 0},
                                    {.fd = terminal.fd(), .events = wanted(to_driver), .revents = 0}}};
      poll(fds.data(), fds.size(), -1);
      if (fds[0].revents != 0) {
        return;
      }
      if (fds[1].revents != 0) {
        to_door.go_on(socket);
        if (!pass_on(socket, to_driver, terminal.fd())) {
          break;
        }
      }
      if (fds[2].revents != 0) {
        to_driver.go_on(terminal.fd());
        pass_on(terminal.fd(), to_door, socket);
      }
    }
  } catch (const std::system_error&) {  // the door has gone
  }
  taken_back_ = true;
}

void Loan::wait_for_the_end() const {
  const auto end = std::chrono::steady_clock::now() + Connection::kPatience;
  pollfd watched{.fd = connection_.socket(), .events = POLLIN, .revents = 0};
  for (std::array<std::uint8_t, 4096> buffer; std::chrono::steady_clock::now() < end;) {
    if (poll(&watched, 1, 100) <= 0) {
      continue;
    }
    const auto count = read(watched.fd, buffer.data(), buffer.size());
    if (count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN)) {
      return;
    }
  }
}

}  // namespace uhfctl
