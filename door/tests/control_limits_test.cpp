// More clients and bytes than there is room for, and the end of it all.
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <memory>

#include "door/tests/control_fixture.h"
#include "refhost/tests/captured_log.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h
namespace {

using testing::HasSubstr;

// Takes the descriptors that this process may have.
class Descriptors {
 public:
  Descriptors() {
    getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit few{.rlim_cur = 256, .rlim_max = before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &few);
  }
  ~Descriptors() { give_back(); }
  Descriptors(const Descriptors&) = delete;
  Descriptors& operator=(const Descriptors&) = delete;

  void take_all() {
    for (int fd = dup(STDERR_FILENO); fd >= 0; fd = dup(STDERR_FILENO)) {
      taken_.push_back(fd);
    }
  }

  void give_back() {
    for (const int fd : std::exchange(taken_, {})) {
      close(fd);
    }
    setrlimit(RLIMIT_NOFILE, &before_);
  }

 private:
  rlimit before_{};
  std::vector<int> taken_;
};

TEST_F(Control, WhoHasWaitedLongestMakesRoomForAnother) {
  std::vector<std::unique_ptr<RawClient>> clients;
  for (std::size_t i = 0; i < ControlServer::kMostClients; ++i) {
    clients.push_back(std::make_unique<RawClient>(directory.path()));
    clients.back()->send(kEcho);
    ASSERT_THAT(clients.back()->receive(), HasSubstr("\"ok\":true"));
  }
  clients[0]->send(kEcho);  // so that the second has waited longest
  ASSERT_THAT(clients[0]->receive(), HasSubstr("\"ok\":true"));
  RawClient late(directory.path());
  late.send(kEcho);
  EXPECT_THAT(late.receive(), HasSubstr("\"ok\":true"));
  EXPECT_THAT(clients[1]->receive(), HasSubstr("others needed this place: connect again"));
  EXPECT_EQ(clients[1]->receive(), "end");
  clients[0]->send(kEcho);
  EXPECT_THAT(clients[0]->receive(), HasSubstr("\"ok\":true"));
}

// Clients whose requests do not end.
class ControlIsFull : public Control {
 protected:
  void SetUp() override {
    for (std::size_t i = 0; i < ControlServer::kMostClients; ++i) {
      add();
    }
  }

  void add() {
    clients.push_back(std::make_unique<RawClient>(directory.path()));
    clients.back()->send("{\"command\":\"count\",\"to\":1}\n{\"command\":\"wait\"}\n");
    ASSERT_THAT(clients.back()->receive(), HasSubstr("\"number\":1"));
    ASSERT_THAT(clients.back()->receive(), HasSubstr("\"ok\":true"));
    EXPECT_THAT(clients.back()->receive(), HasSubstr("waiting"));
  }

  std::vector<std::unique_ptr<RawClient>> clients;
};

TEST_F(ControlIsFull, OneClientMoreIsRefusedAndRootHasAPlace) {
  if (geteuid() == 0) {
    add();
  }
  RawClient late(directory.path());
  EXPECT_THAT(late.receive(), HasSubstr("too many clients: at most 16"));
  EXPECT_EQ(late.receive(), "end");
  clients.clear();
  // Its place is free once the server has seen that the others are gone.
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  std::string answer;
  do {
    RawClient next(directory.path());
    next.send(kEcho);
    answer = next.receive();
  } while (answer.find("\"ok\":true") == std::string::npos && std::chrono::steady_clock::now() < deadline);
  EXPECT_THAT(answer, HasSubstr("\"ok\":true"));
}

TEST_F(Control, AClientThatAsksForNothingGoes) {
  server.reset();
  server.emplace(directory.path(), commands(), ControlLimits{.idle = std::chrono::milliseconds(20)});
  RawClient client(directory.path());
  EXPECT_THAT(client.receive(), HasSubstr("no request came for too long: connect again"));
  EXPECT_EQ(client.receive(), "end");
}

TEST_F(Control, AClientThatDoesNotReadGoesAndTheLogSaysSo) {
  server.reset();
  server.emplace(directory.path(), commands(), ControlLimits{.patience = std::chrono::milliseconds(20)});
  capture_log();
  RawClient client(directory.path());
  client.send("{\"command\":\"count\",\"to\":1000000000}\n");
  EXPECT_TRUE(client.wait_for_end());
  EXPECT_THAT(captured_log(), HasSubstr("a client of the control socket does not read what it has asked for"));
}

// While a process has none left, a client that waits to be accepted is reported again and again.
TEST_F(Control, WithoutADescriptorClientsAreToldAndTheNextIsServedWhenThereIsOne) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer looks at memory through a pipe, for which it needs descriptors";
#endif
  Descriptors descriptors;
  RawClient client(directory.path(), [&] { descriptors.take_all(); });
  EXPECT_THAT(client.receive(), HasSubstr("the host can take no client: Too many open files"));
  EXPECT_EQ(client.receive(), "end");
  descriptors.give_back();
  EXPECT_EQ(ask({{"command", "echo"}, {"text", "a"}})["ok"], true);
}

TEST_F(Control, ARunningCommandHearsThatItsClientHasGone) {
  { RawClient(directory.path()).send("{\"command\":\"wait\"}\n"); }
  server.reset();  // waits for the command
}

TEST_F(Control, TheEndOfTheServerEndsCommandsAndConnections) {
  RawClient waiting(directory.path());
  RawClient idle(directory.path());
  waiting.send("{\"command\":\"wait\"}\n");
  server.reset();
  EXPECT_EQ(idle.receive(), "end");
  EXPECT_THROW(ControlClient(directory.path()), NoHost);
}

}  // namespace
}  // namespace achost::test
