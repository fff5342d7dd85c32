// Whose the files of a state directory are. Only root can give files away: else those tests are skipped, and say so.
#include "refhost/state_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "refhost/audit_log.h"
#include "refhost/instance_lock.h"
#include "refhost/settings_store.h"
#include "refhost/tests/support.h"

namespace refhost::test {
namespace {

constexpr uid_t kSomebody = 1234;

class StateFile : public testing::Test {
 protected:
  // A directory of somebody's with that mode.
  void give_directory(mode_t mode) const {
    ASSERT_EQ(chown(directory.c_str(), kSomebody, kSomebody), 0);
    ASSERT_EQ(chmod(directory.c_str(), mode), 0);
  }

  static struct stat status(const std::filesystem::path& file) {
    struct stat result {};
    EXPECT_EQ(lstat(file.c_str(), &result), 0) << file;
    return result;
  }

  static mode_t mode(const std::filesystem::path& file) { return status(file).st_mode & 07777U; }

  static void make(const std::filesystem::path& file) {
    const int fd = open_state_file(file);
    ASSERT_GE(fd, 0) << file;
    close(fd);
  }

  // What the stores and the lock make, while they are open.
  void expect_all_of(uid_t owner, mode_t wanted) const {
    const InstanceLock lock(directory);
    SettingsStore settings(directory, SettingsStore::Access::read_write);
    settings.set("uhf", "read_interval", "777");
    AuditLog(directory).append({"t", 1, "d"});
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
      EXPECT_EQ(status(entry.path()).st_uid, owner) << entry.path();
      EXPECT_EQ(status(entry.path()).st_gid, owner) << entry.path();
      EXPECT_EQ(mode(entry.path()), wanted) << entry.path();
      ++files;
    }
    EXPECT_GE(files, 5) << "lock, audit.db, settings.db, its -wal and its -shm";
  }

 private:
  const TemporaryDirectory temporary_;

 protected:
  const std::filesystem::path directory = temporary_.path();
};

class StateFileOfRoot : public StateFile {
 protected:
  void SetUp() override {
    if (geteuid() != 0) {
      GTEST_SKIP() << "only root can give files away";
    }
  }
};

TEST_F(StateFile, IsForItsOwnerAlone) {
  ASSERT_EQ(chmod(directory.c_str(), 0755), 0);
  make(directory / "a");
  EXPECT_EQ(mode(directory / "a"), 0600U);
}

TEST_F(StateFile, IsForTheGroupTooWhereThatMayWrite) {
  ASSERT_EQ(chmod(directory.c_str(), 0770), 0);
  make(directory / "a");
  EXPECT_EQ(mode(directory / "a"), 0660U);
}

TEST_F(StateFile, KeepsTheModeThatItsOwnerGaveIt) {
  std::ofstream(directory / "a") << "content";
  ASSERT_EQ(chmod((directory / "a").c_str(), 0640), 0);
  make(directory / "a");
  EXPECT_EQ(mode(directory / "a"), 0640U);
}

TEST_F(StateFileOfRoot, BelongsToTheDirectorysOwner) {
  give_directory(0700);
  expect_all_of(kSomebody, 0600);
}

TEST_F(StateFileOfRoot, IsForTheDirectorysGroupTooWhereThatMayWrite) {
  give_directory(0770);
  expect_all_of(kSomebody, 0660);
}

TEST_F(StateFileOfRoot, ThatRootHasLeftThereIsGivenBack) {
  { const SettingsStore settings(directory, SettingsStore::Access::read_write); }
  give_directory(0700);
  ASSERT_EQ(status(directory / "settings.db").st_uid, 0U);
  expect_all_of(kSomebody, 0600);
}

// SQLite's own, of a host of root's that crashed: it takes them as they are.
TEST_F(StateFileOfRoot, ThatACrashOfRootHasLeftBesideADatabaseIsGivenBack) {
  const TemporaryDirectory crashed;
  {
    SettingsStore settings(crashed.path(), SettingsStore::Access::read_write);
    settings.set("uhf", "read_interval", "777");
    std::filesystem::copy(crashed.path(), directory);
  }
  give_directory(0700);
  const SettingsStore settings(directory, SettingsStore::Access::read_write);
  for (const char* file : {"settings.db", "settings.db-wal", "settings.db-shm"}) {
    EXPECT_EQ(status(directory / file).st_uid, kSomebody) << file;
  }
  EXPECT_EQ(settings.get("uhf", "read_interval"), "777");
}

TEST_F(StateFileOfRoot, IsWrittenByTheDirectorysOwnerAfterwards) {
  give_directory(0700);
  expect_all_of(kSomebody, 0600);
  const pid_t child = fork();
  if (child == 0) {
    const bool is_somebody = setgid(kSomebody) == 0 && setuid(kSomebody) == 0;
    const std::string failure = failure_of([&] {
      const InstanceLock lock(directory);
      SettingsStore(directory, SettingsStore::Access::read_write).set("uhf", "read_interval", "888");
      AuditLog(directory).append({"t", 1, "d"});
    });
    _exit(is_somebody && failure == "nothing was thrown" ? 0 : 1);
  }
  int result = -1;
  ASSERT_EQ(waitpid(child, &result, 0), child);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(SettingsStore(directory, SettingsStore::Access::read_only).get("uhf", "read_interval"), "888");
}

// Else the directory's owner could have root give him any file of the system.
TEST_F(StateFileOfRoot, ThatIsALinkIsNeitherFollowedNorGiven) {
  const TemporaryDirectory elsewhere;
  std::ofstream(elsewhere.path() / "secret") << "of root";
  std::filesystem::create_symlink(elsewhere.path() / "secret", directory / "symbolic");
  std::filesystem::create_hard_link(elsewhere.path() / "secret", directory / "hard");
  give_directory(0700);
  EXPECT_EQ(open_state_file(directory / "symbolic"), -1);
  make(directory / "hard");
  give_to_directorys_owner(directory / "symbolic");
  give_to_directorys_owner(directory / "hard");
  EXPECT_EQ(status(elsewhere.path() / "secret").st_uid, 0U);
}

}  // namespace
}  // namespace refhost::test
