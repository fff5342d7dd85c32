// Where achost looks for its state, and whose that is.
#include <gmock/gmock.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "door/tests/run_fixture.h"

namespace achost::test {
namespace {

using testing::HasSubstr;
using Words = std::vector<std::string>;

class AchostState : public testing::Test {
 protected:
  AchostState() {
    setenv("HOME", directory.c_str(), 1);
    setenv("XDG_STATE_HOME", directory.c_str(), 1);
  }
  ~AchostState() override { unsetenv("ACHOST_STATE"); }

  std::string missing() const { return directory / "typo"; }

  std::string way_out() const {
    return "there is no state directory " + missing() + ": achost run --state " + missing() +
           " makes it, or mkdir -p -m 700 " + missing() + "\n";
  }

 private:
  const TemporaryDirectory temporary_;

 protected:
  const std::filesystem::path directory = temporary_.path();
};

const std::vector<Words> kCommands = {{"user", "list"},
                                      {"user", "put", "7"},
                                      {"user", "remove", "7"},
                                      {"card", "list"},
                                      {"card", "add", "33", "--user", "7"},
                                      {"card", "remove", "33"},
                                      {"audit", "list"},
                                      {"audit", "export", "--format", "csv"},
                                      {"config", "list"},
                                      {"config", "get", "region"},
                                      {"config", "set", "region", "KOREA"},
                                      {"config", "import", "/dev/null"},
                                      {"config", "export"}};

TEST_F(AchostState, ThatWasAskedForAndIsNotThereIsAnErrorAndNotMade) {
  for (Words words : kCommands) {
    words.insert(words.end(), {"--state", missing()});
    const auto result = achost(words);
    EXPECT_EQ(result.status, 1) << words[0] << " " << words[1];
    EXPECT_EQ(result.err, "achost: " + way_out()) << words[0] << " " << words[1];
    EXPECT_EQ(result.out, "") << words[0] << " " << words[1];
    ASSERT_FALSE(std::filesystem::exists(missing())) << words[0] << " " << words[1];
  }
}

TEST_F(AchostState, OfTheEnvironmentIsOneThatWasAskedFor) {
  setenv("ACHOST_STATE", missing().c_str(), 1);
  for (const Words& words : kCommands) {
    EXPECT_EQ(achost(words).err, "achost: " + way_out()) << words[0] << " " << words[1];
  }
  std::filesystem::create_directory(missing());
  EXPECT_EQ(achost({"user", "put", "7", "--name", "Ana"}).err, "");
  EXPECT_THAT(achost({"user", "list"}).out, HasSubstr("Ana"));
  EXPECT_TRUE(std::filesystem::exists(missing() + "/users.db"));
}

TEST_F(AchostState, OfTheOptionWinsOverTheEnvironment) {
  setenv("ACHOST_STATE", missing().c_str(), 1);
  std::filesystem::create_directory(directory / "wanted");
  EXPECT_EQ(achost({"config", "set", "region", "KOREA", "--state", directory / "wanted"}).err, "");
  EXPECT_TRUE(std::filesystem::exists(directory / "wanted" / "settings.db"));
}

TEST_F(AchostState, OfTheEnvironmentGivesWayToATemporaryOne) {
  setenv("ACHOST_STATE", missing().c_str(), 1);
  const auto result = achost({"run", "--plugin", TEST_PLUGINS "/plugin_good.so", "--simulate", "--scenario",
                              "/dev/null", "--temporary-state", "--seconds", "0.1"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_FALSE(std::filesystem::exists(missing()));
}

TEST_F(AchostState, ThatIsTemporaryIsGoneWhenTheRunDoesNotComeAbout) {
  setenv("TMPDIR", directory.c_str(), 1);
  const auto result =
      achost({"run", "--plugin", TEST_PLUGINS "/plugin_good.so", "--port", "/dev/null", "--temporary-state"});
  unsetenv("TMPDIR");
  EXPECT_EQ(result.status, 3) << result.err;
  EXPECT_TRUE(std::filesystem::is_empty(directory));
}

// The usual one of root is the service's own: no test may touch it.
class AchostUsualState : public AchostState {
 protected:
  static constexpr uid_t kSomebody = 1234;

  void SetUp() override {
    if (geteuid() != 0) {
      return;
    }
    ASSERT_EQ(chown(directory.c_str(), kSomebody, kSomebody), 0);
    ASSERT_EQ(chmod(directory.c_str(), 0700), 0);
    if (run_program("/usr/bin/setpriv", as_somebody_arguments({"--version"})).status != 0) {
      GTEST_SKIP() << "another user cannot run " << ACHOST;
    }
  }

  static Words as_somebody_arguments(Words words) {
    words.insert(words.begin(), {"--reuid=1234", "--regid=1234", "--clear-groups", ACHOST});
    return words;
  }

  // achost as somebody who is not root; its standard error.
  std::string as_somebody(Words words) const {
    return geteuid() == 0 ? run_program("/usr/bin/setpriv", as_somebody_arguments(std::move(words))).err
                          : achost(std::move(words)).err;
  }

  std::string usual() const { return directory / "achost"; }
};

TEST_F(AchostUsualState, IsMadeByACommandThatWritesAndSaid) {
  EXPECT_EQ(as_somebody({"user", "list"}), "achost: there is no state directory " + usual() +
                                               ": achost run makes it, or mkdir -p -m 700 " + usual() + "\n");
  EXPECT_EQ(as_somebody({"config", "get", "region"}), "") << "the defaults hold";
  EXPECT_FALSE(std::filesystem::exists(usual()));
  EXPECT_EQ(as_somebody({"user", "put", "7", "--name", "Ana"}),
            "achost: the state directory " + usual() + " is made\n");
  EXPECT_EQ(as_somebody({"user", "list"}), "");
  EXPECT_EQ(std::filesystem::status(usual()).permissions(), std::filesystem::perms::owner_all);
}

TEST_F(AchostUsualState, PreparedByRootIsWrittenByItsOwner) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can prepare another's state";
  }
  for (const Words& words : {Words{"config", "set", "region", "KOREA"}, Words{"user", "put", "7"}}) {
    auto command = words;
    command.insert(command.end(), {"--state", directory});
    EXPECT_EQ(achost(command).status, 0);
    EXPECT_EQ(as_somebody(command), "");
  }
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    struct stat status {};
    ASSERT_EQ(stat(entry.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, kSomebody) << entry.path();
    EXPECT_EQ(status.st_mode & 07777U, 0600U) << entry.path();
  }
}

// The socket too: root's host on another's state is asked by that one.
TEST_F(AchostUsualState, OfARunOfRootIsAskedByItsOwner) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can run on another's state";
  }
  Achost host({"run", "--plugin", TEST_PLUGINS "/plugin_good.so", "--simulate", "--state", directory});
  EXPECT_NE(host.next_line(), "");
  EXPECT_EQ(as_somebody({"status", "--state", directory}), "");
  host.signal(SIGTERM);
  EXPECT_EQ(host.wait().status, 0);
}

// The files are root's alone here, and the socket is the owner's: what works goes through the host.
TEST_F(AchostUsualState, OfARunOfRootIsChangedThroughTheHostAlone) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can run on another's state";
  }
  Achost host({"run", "--plugin", TEST_PLUGINS "/plugin_good.so", "--simulate", "--state", directory});
  EXPECT_NE(host.next_line(), "");
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    if (entry.path().filename().string().find(".db") != std::string::npos) {
      ASSERT_EQ(chown(entry.path().c_str(), 0, 0), 0);
    }
  }
  for (Words words : {Words{"user", "put", "7", "--name", "Ana"}, Words{"card", "add", "33", "--user", "7"},
                      Words{"config", "set", "host", "device_id", "12"}, Words{"user", "list"}, Words{"card", "list"},
                      Words{"config", "get", "region"}, Words{"config", "list"}, Words{"config", "export"},
                      Words{"audit", "list"}, Words{"card", "remove", "33"}, Words{"user", "remove", "7"}}) {
    words.insert(words.end(), {"--state", directory});
    EXPECT_EQ(as_somebody(words), "") << words[0] << ' ' << words[1];
  }
  host.signal(SIGTERM);
  EXPECT_EQ(host.wait().status, 0);
}

}  // namespace
}  // namespace achost::test
