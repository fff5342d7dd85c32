// Who may ask.
#include <gmock/gmock.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <array>
#include <fstream>
#include <numeric>

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

TEST_F(Control, TheSocketIsForItsOwnerAloneWhereTheMachineHasNoneOfTheGroups) {
  server.reset();
  server.emplace(directory.path(), commands(), ControlLimits{}, "/dev/null");
  struct stat status {};
  ASSERT_EQ(stat((directory.path() / "control.sock").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST(Roles, EveryCommandThatNoTableNamesIsForAdmins) {
  EXPECT_EQ(role_for("status"), Role::view);
  EXPECT_EQ(role_for("door_open"), Role::admin);
  EXPECT_EQ(role_for("a new one"), Role::admin);
}

TEST(Roles, AreThoseOfTheSchema) {
  std::ifstream file(CONTROL_SCHEMA);
  const Json schema = Json::parse(file);
  for (const auto& [name, command] : schema.at("commands").items()) {
    EXPECT_EQ(name_of(role_for(name)), command.at("role").get<std::string>()) << name;
  }
  for (const auto name : kForView) {
    EXPECT_TRUE(schema.at("commands").contains(std::string(name))) << name;
  }
}

TEST(Roles, TheGroupsAreThoseOfTheMachinesFile) {
  const TemporaryDirectory directory;
  const auto file = directory.path() / "group";
  std::ofstream(file) << "root:x:0:\nachost-view:x:4001:ana,lena\nachost:x:4003:\nachost-admin:x:4002:\n";
  const auto groups = role_groups(file);
  EXPECT_EQ(groups.view, 4001U);
  EXPECT_EQ(groups.admin, 4002U);
  EXPECT_FALSE(role_groups(directory.path() / "none").exist());
}

TEST_F(Control, WhoAsksForAnotherGivesAName) {
  const auto refused = [&](const Json& name) {
    return ask({{"command", "echo"}, {"text", "x"}, {"on_behalf_of", name}}).value("error", "");
  };
  const std::string rule = "\"on_behalf_of\" is to be a name of 1 to 100 bytes";
  EXPECT_EQ(refused("ana"), "");
  EXPECT_EQ(refused(std::string(100, 'a')), "");
  for (const Json& wrong : {Json(""), Json(7), Json("a\nb"), Json("\x7f"), Json(std::string(101, 'a'))}) {
    EXPECT_EQ(refused(wrong), rule) << wrong;
  }
}

// Somebody has opened the way for everyone: who is on the other end is looked at all the same.
class ControlOfRoot : public Control {
 protected:
  enum Answer { taken, refused, none };

  static constexpr uid_t kSomebody = 65534;
  static constexpr gid_t kGroup = 1234;
  static constexpr gid_t kViewers = 4001;
  static constexpr gid_t kAdmins = 4002;

  // A server that knows both groups, with a command for viewers ("status") and one that is not ("door_open"): each
  // tells who asks.
  void serve_groups() {
    const auto who = [](const Json&, ControlStream&) -> Json {
      return {{"uid", MakerScope::current()->uid}, {"for", MakerScope::current()->behalf}};
    };
    std::ofstream(directory.path() / "group")
        << "achost-view:x:" << kViewers << ":\nachost-admin:x:" << kAdmins << ":\n";
    server.reset();
    server.emplace(
        directory.path(),
        ControlTable({{.name = "status", .fields = {}, .run = who}, {.name = "door_open", .fields = {}, .run = who}}),
        ControlLimits{}, directory.path() / "group");
    std::filesystem::permissions(directory.path(), std::filesystem::perms(0711));
  }

  // What somebody gets for that request, who is in these groups and nobody else.
  std::string answer_for(const std::vector<gid_t>& groups, const std::string& request) const {
    std::array<int, 2> pipe_ends{};
    EXPECT_EQ(pipe(pipe_ends.data()), 0);
    const pid_t child = fork();
    if (child == 0) {
      const int client = socket(AF_UNIX, SOCK_STREAM, 0);
      std::string line = "not connected";
      if (setgroups(groups.size(), groups.data()) == 0 && setgid(kSomebody) == 0 && setuid(kSomebody) == 0 &&
          SocketPlace(directory.path(), "control.sock").connect(client) == 0) {
        send_all(client, request + "\n");
        LineReader(client, 1 << 20).next(line, kPatience);
      }
      _exit(write(pipe_ends[1], line.data(), line.size()) < 0 ? 1 : 0);
    }
    close(pipe_ends[1]);
    std::string answer;
    std::array<char, 4096> buffer{};
    for (ssize_t got = 0; (got = read(pipe_ends[0], buffer.data(), buffer.size())) > 0;) {
      answer.append(buffer.data(), static_cast<std::size_t>(got));
    }
    close(pipe_ends[0]);
    waitpid(child, nullptr, 0);
    return answer;
  }

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

TEST_F(ControlOfRoot, WhoIsInTheGroupOfViewersMayLookAndChangesNothing) {
  serve_groups();
  EXPECT_EQ(answer_for({kViewers}, R"({"command":"status"})"), R"({"ok":true,"uid":65534,"for":""})");
  EXPECT_EQ(
      answer_for({kViewers}, R"({"command":"door_open"})"),
      R"({"ok":false,"status":1,"error":"\"door_open\" is for the group achost-admin: you may look","needs":"admin"})");
}

TEST_F(ControlOfRoot, WhoIsInTheGroupOfAdminsMayDoAllAndAskForOthers) {
  serve_groups();
  EXPECT_EQ(answer_for({kGroup, kAdmins}, R"({"command":"door_open"})"), R"({"ok":true,"uid":65534,"for":""})");
  EXPECT_EQ(answer_for({kAdmins, kViewers}, R"({"command":"door_open","on_behalf_of":"ana"})"),
            R"({"ok":true,"uid":65534,"for":"ana"})");
}

TEST_F(ControlOfRoot, AViewerIsNotBelievedThatHeAsksForAnother) {
  serve_groups();
  EXPECT_EQ(
      answer_for({kViewers}, R"({"command":"status","on_behalf_of":"ana"})"),
      R"({"ok":false,"status":1,"error":"\"on_behalf_of\" is believed of the group achost-admin alone","needs":"admin"})");
}

TEST_F(ControlOfRoot, WhoIsInNeitherGroupIsToldWhoMay) {
  serve_groups();
  EXPECT_EQ(
      answer_for({kGroup}, R"({"command":"status"})"),
      R"({"ok":false,"status":1,"error":"another user's host: its user and root may ask, and the groups achost-admin and achost-view"})");
}

TEST_F(ControlOfRoot, AMemberOfVeryManyGroupsHasHisRoleAllTheSame) {
  serve_groups();
  std::vector<gid_t> many(1000);
  std::iota(many.begin(), many.end(), 100000);
  many.push_back(kViewers);
  EXPECT_EQ(answer_for(many, R"({"command":"status"})"), R"({"ok":true,"uid":65534,"for":""})");
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
