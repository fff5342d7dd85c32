#include "loan.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "failure.h"

namespace uhfctl {

namespace {

Connection borrowed(const Door& door, const std::string& who) {
  door.check_reader();
  auto connection = door.connect();
  connection.ask({{"command", "borrow"}, {"who", who}});
  return connection;
}

}  // namespace

Loan::Loan(const Door& door, const std::string& who) : lender_(door.name()), connection_(borrowed(door, who)) {
  fcntl(connection_.socket(), F_SETFL, O_NONBLOCK);
  pump_.emplace(connection_.socket());
}

Loan::~Loan() {
  const bool taken_back = is_taken_back();
  pump_.reset();
  if (!taken_back) {
    shutdown(connection_.socket(), SHUT_WR);
    wait_for_the_end();
  }
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
