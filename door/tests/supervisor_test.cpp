#include "door/run/supervisor.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string>

#include "refhost/tests/captured_log.h"
#include "refhost/tests/support.h"

namespace achost {
namespace {

using std::chrono::milliseconds;

// A supervisor's socket at a path, or at a name that is no file when it begins with '@'.
class Listener {
 public:
  explicit Listener(const std::string& path) : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (path[0] == '@') {
      address.sun_path[0] = '\0';
    }
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr*>(&address), size), 0);
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
  }
  ~Listener() {
    unsetenv("NOTIFY_SOCKET");
    close(socket_);
  }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  // What was told; empty when nothing was.
  std::string heard() const {
    std::array<char, 256> buffer;
    const ssize_t size = recv(socket_, buffer.data(), buffer.size(), MSG_DONTWAIT);
    return size > 0 ? std::string(buffer.data(), static_cast<std::size_t>(size)) : "";
  }

 private:
  int socket_;
};

TEST(Supervisor, IsToldAtItsPath) {
  const refhost::test::TemporaryDirectory directory;
  const Listener listener(directory.path() / "notify");
  const Supervisor supervisor;
  supervisor.tell("READY=1\nSTATUS=good");
  EXPECT_EQ(listener.heard(), "READY=1\nSTATUS=good");
}

TEST(Supervisor, IsToldAtANameThatIsNoFile) {
  const Listener listener("@achost-test-" + std::to_string(getpid()));
  const Supervisor supervisor;
  supervisor.tell("WATCHDOG=1");
  EXPECT_EQ(listener.heard(), "WATCHDOG=1");
}

TEST(Supervisor, WithoutOneNothingIsTold) {
  unsetenv("NOTIFY_SOCKET");
  EXPECT_NO_THROW(Supervisor().tell("READY=1"));
}

TEST(Supervisor, OneThatCannotBeReachedIsLogged) {
  for (const std::string& path : {std::string("/nowhere/notify"), std::string(200, 'x')}) {
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
    refhost::test::capture_log();
    EXPECT_NO_THROW(Supervisor().tell("READY=1"));
    EXPECT_NE(refhost::test::captured_log().find("supervisor"), std::string::npos) << path;
    unsetenv("NOTIFY_SOCKET");
  }
}

TEST(Supervisor, WantsToHearTwiceInItsPeriod) {
  for (const auto& [text, period] : std::vector<std::pair<const char*, std::optional<milliseconds>>>{
           {"30000000", milliseconds(15000)}, {"1", milliseconds(1)}, {"0", std::nullopt}, {"soon", std::nullopt}}) {
    setenv("WATCHDOG_USEC", text, 1);
    EXPECT_EQ(Supervisor::watchdog_period(), period) << text;
  }
  unsetenv("WATCHDOG_USEC");
  EXPECT_EQ(Supervisor::watchdog_period(), std::nullopt);
}

}  // namespace
}  // namespace achost
