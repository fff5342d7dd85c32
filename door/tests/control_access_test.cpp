// Who may ask.
#include <gmock/gmock.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "door/base/maker.h"
#include "door/tests/control_fixture.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h
namespace {

TEST_F(Control, WhoMayNotReachTheHostIsToldWhoMay) {
  const bool is_root = geteuid() == 0;
  ASSERT_EQ(chmod(directory.path().c_str(), 0), 0);
  if (is_root) {
    ASSERT_EQ(seteuid(65534), 0);
  }
  const auto failure = refhost::test::failure_of([&] { ControlClient{directory.path()}; });
  if (is_root) {
    ASSERT_EQ(seteuid(0), 0);
  }
  ASSERT_EQ(chmod(directory.path().c_str(), 0700), 0);
  EXPECT_EQ(failure, "cannot reach the host on " + directory.path().string() +
                         ": Permission denied; try it as root, or as whom " + directory.path().string() +
                         " belongs to");
}

TEST_F(Control, TheSocketIsForItsOwnerAlone) {
  struct stat status {};
  ASSERT_EQ(stat((directory.path() / "control.sock").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

// Somebody has opened the way for everyone: who is on the other end is looked at all the same.
class ControlOfRoot : public Control {
 protected:
  enum Answer { taken, refused, none };

  static constexpr uid_t kSomebody = 65534;
  static constexpr gid_t kGroup = 1234;

  void SetUp() override {
    if (geteuid() != 0) {
      GTEST_SKIP() << "only root can become somebody else";
    }
    ASSERT_EQ(chown(directory.path().c_str(), 0, kGroup), 0);
    std::filesystem::permissions(directory.path() / "control.sock", std::filesystem::perms(0666));
  }

  // What somebody of that group gets, who is in the others too, with the directory of that mode.
  int answer_to(gid_t group, mode_t mode, const std::vector<gid_t>& others = {}) const {
    std::filesystem::permissions(directory.path(), std::filesystem::perms(mode));
    const pid_t child = fork();
    if (child == 0) {
      const int client = socket(AF_UNIX, SOCK_STREAM, 0);
      const bool connected = setgroups(others.size(), others.data()) == 0 && setgid(group) == 0 &&
                             setuid(kSomebody) == 0 &&
                             SocketPlace(directory.path(), "control.sock").connect(client) == 0;
      send_all(client, "{\"command\":\"echo\",\"text\":\"x\"}\n");
      std::string line;
      LineReader(client, 1 << 20).next(line, kPatience);
      const bool is_refused = line.find("another user's host") != std::string::npos;
      _exit(!connected ? none : is_refused ? refused : line.find("\"ok\":true") != std::string::npos ? taken : none);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WEXITSTATUS(status);
  }
};

TEST_F(ControlOfRoot, AChangeIsThePeers) {
  server.reset();
  server.emplace(directory.path(), ControlTable({{.name = "who",
                                                  .fields = {},
                                                  .run = [](const Json&, ControlStream&) -> Json {
                                                    return {{"uid", MakerScope::current()->uid}};
                                                  },
                                                  .changes = true}}));
  ASSERT_EQ(chown(directory.path().c_str(), kSomebody, kSomebody), 0);
  ASSERT_EQ(chown((directory.path() / "control.sock").c_str(), kSomebody, kSomebody), 0);
  ASSERT_EQ(seteuid(kSomebody), 0);
  ControlClient client(directory.path());
  ASSERT_EQ(seteuid(0), 0);
  client.send({{"command", "who"}});
  EXPECT_EQ(client.receive().at("uid"), kSomebody);
}

TEST_F(ControlOfRoot, AnotherUsersRequestIsRefused) { EXPECT_EQ(answer_to(kSomebody, 0711), refused); }

TEST_F(ControlOfRoot, TheGroupMayAskWhereItMayWrite) {
  EXPECT_EQ(answer_to(kGroup, 0770), taken);
  EXPECT_EQ(answer_to(kSomebody, 0771, {kSomebody, kGroup}), taken) << "one of several groups";
  EXPECT_EQ(answer_to(kGroup, 0750), refused);
  EXPECT_EQ(answer_to(kSomebody, 0771), refused);
}

}  // namespace
}  // namespace achost::test
