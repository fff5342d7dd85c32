// achost backup and restore.
#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "door/tests/run_fixture.h"
#include "refhost/audit_log.h"

namespace achost::test {
namespace {

using testing::HasSubstr;
using Words = std::vector<std::string>;

class AchostBackup : public AchostRun {
 protected:
  AchostBackup() { std::filesystem::create_directory(state()); }

  std::string backup() const { return places_.path() / "door.backup"; }

  Result command(Words words) const {
    words.insert(words.end(), {"--state", state()});
    return achost(words);
  }

  // The output of a command that succeeds.
  std::string output(const Words& words) const {
    const auto result = command(words);
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
  }

  // All that somebody can see.
  std::string everything() const {
    return output({"user", "list", "--json"}) + output({"card", "list", "--json"}) + output({"config", "export"}) +
           output({"audit", "list", "--json"}) + output({"journal", "--json"});
  }

  void fill(int number) const {
    const auto text = std::to_string(number);
    output({"card", "add", text, "--user", text});
    output({"user", "put", text, "--name", "Ana " + text});
    output({"config", "set", "read_interval", text});
    refhost::AuditLog(state()).append({.time = "t", .type = 1, .details = text});
  }

  // What begins with that in the state directory.
  std::vector<std::filesystem::path> those(const std::string& beginning) const {
    std::vector<std::filesystem::path> found;
    for (const auto& entry : std::filesystem::directory_iterator(state())) {
      if (entry.path().filename().string().starts_with(beginning)) {
        found.push_back(entry.path());
      }
    }
    return found;
  }

 private:
  refhost::test::TemporaryDirectory places_;
};

TEST_F(AchostBackup, IsRestoredAsItWasAndWhatWasThereIsKept) {
  fill(500);
  const auto before = everything();
  EXPECT_THAT(output({"backup", backup()}), HasSubstr(" bytes in " + backup()));
  fill(600);
  const auto later = everything();
  const auto said = output({"restore", backup()});
  EXPECT_EQ(everything(), before);
  EXPECT_EQ(output({"check"}).find("damaged"), std::string::npos);
  const auto kept = those("before-restore-");
  ASSERT_EQ(kept.size(), 1U);
  EXPECT_EQ(said, state() + " is as " + backup() + " has it; what was there is in " + kept[0].string() + "\n");
  const auto old = achost({"user", "list", "--json", "--state", kept[0]});
  EXPECT_THAT(old.out, HasSubstr("Ana 600")) << old.err;
  EXPECT_EQ(those("restore.").size(), 0U);
}

TEST_F(AchostBackup, IsForItsUserAloneAndReplacesNothingUnasked) {
  fill(500);
  std::ofstream(backup()) << "mine";
  const auto refused = command({"backup", backup()});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.err, "achost: cannot write " + backup() + ": it is there already; --force takes its place\n");
  EXPECT_EQ(refhost::test::content_of(backup()), "mine");
  output({"backup", backup(), "--force"});
  struct stat status {};
  ASSERT_EQ(stat(backup().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  EXPECT_EQ(output({"restore", backup(), "--check"}), backup() + " is whole\n");
  const auto directory = std::filesystem::path(backup()).parent_path();
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory), {}), 1);
}

TEST_F(AchostBackup, ThatIsNoneIsRefusedAndNothingIsChanged) {
  fill(500);
  const auto before = everything();
  const auto refused = [&](const std::string& reason) {
    for (const Words& words : {Words{"restore", backup()}, Words{"restore", backup(), "--check"}}) {
      const auto result = command(words);
      EXPECT_NE(result.status, 0);
      EXPECT_THAT(result.err, testing::ContainsRegex(reason));
    }
    EXPECT_EQ(everything(), before);
    EXPECT_EQ(those("restore.").size() + those("before-").size(), 0U);
  };
  refused("door.backup is not there: give a backup");
  std::filesystem::create_directory(backup());
  refused("door.backup is no file: give a backup");
  std::filesystem::remove(backup());
  std::ofstream(backup()) << std::string(5000, 'x');
  refused("door.backup is no readable backup .*: take another one");
  std::filesystem::remove(backup());
  std::ofstream(backup()).flush();
  refused("door.backup is no backup: nothing is in it");
}

// Each makes of a good backup one that is not.
class AchostBackupOf : public AchostBackup, public testing::WithParamInterface<std::pair<const char*, const char*>> {};

TEST_P(AchostBackupOf, AnotherThanWasWrittenIsRefusedAndNothingIsChanged) {
  fill(500);
  output({"backup", backup()});
  fill(600);
  const auto before = everything();
  SQLite::Database(backup(), SQLite::OPEN_READWRITE).exec(GetParam().first);
  const auto result = command({"restore", backup()});
  EXPECT_NE(result.status, 0);
  EXPECT_THAT(result.err, testing::ContainsRegex(GetParam().second));
  EXPECT_EQ(everything(), before);
  EXPECT_EQ(those("restore.").size() + those("before-").size(), 0U);
}

INSTANTIATE_TEST_SUITE_P(
    All, AchostBackupOf,
    testing::Values(std::pair("UPDATE pieces SET data = zeroblob(length(data))", "settings.db|audit.db in it is not"),
                    std::pair("DELETE FROM pieces WHERE number = 0 AND file = 'users.db'", "users.db in it is not"),
                    std::pair("UPDATE pieces SET number = number + 1 WHERE file = 'users.db'", "users.db in it is not"),
                    std::pair("DELETE FROM files WHERE name = 'users.db'", "does not hold what it held"),
                    std::pair("DELETE FROM whole", "does not hold what it held"),
                    std::pair("UPDATE files SET size = size + 1", "of which nothing is known"),
                    std::pair("UPDATE files SET name = '../users.db' WHERE name = 'users.db'",
                              "of which nothing is known"),
                    std::pair("PRAGMA user_version = 2", "newer than this program knows")));

TEST_F(AchostBackup, OfADamagedOrNewerStoreIsNotRestored) {
  fill(500);
  const auto users = state() + "/users.db";
  SQLite::Database(users, SQLite::OPEN_READWRITE).exec("UPDATE users SET name = 'Eva'");
  output({"backup", backup()});
  const auto damaged = command({"restore", backup()});
  EXPECT_EQ(damaged.status, 10);
  EXPECT_THAT(damaged.err, HasSubstr("holds is damaged, and is not restored: user 500 is not as it was stored"));
  SQLite::Database(users, SQLite::OPEN_READWRITE).exec("PRAGMA user_version = 99");
  output({"backup", backup(), "--force"});
  const auto newer = command({"restore", backup()});
  EXPECT_EQ(newer.status, 1);
  EXPECT_THAT(newer.err, HasSubstr("newer than this program knows"));
  EXPECT_EQ(those("restore.").size() + those("before-").size(), 0U);
}

TEST_F(AchostBackup, IsRestoredUnderAHostThatRunsAndStartsAnewWithIt) {
  fill(500);
  Achost host(simulated("good"));
  EXPECT_NE(host.next_line(), "");
  output({"backup", backup()});
  fill(600);
  output({"user", "remove", "500"});
  // The port as the plug-in has it, and what it makes of it.
  const auto ports = [&host] {
    const auto open = std::filesystem::directory_iterator("/proc/" + std::to_string(host.pid()) + "/fd");
    return std::ranges::count_if(open, [](const auto& fd) {
      std::error_code gone;
      return std::filesystem::read_symlink(fd, gone).string().starts_with("/dev/pts/");
    });
  };
  const auto ports_before = ports();
  const auto said = output({"restore", backup()});
  EXPECT_THAT(said, HasSubstr("and its host starts anew; what was there is in " + state() + "/before-restore-"));
  const auto deadline = std::chrono::steady_clock::now() + refhost::test::kPatience;
  Result users;
  Result status;
  do {  // there is a moment without a host, when commands work on the files
    users = command({"user", "list", "--json"});
    status = command({"status"});
  } while ((users.out.find("Ana 500") == std::string::npos || status.status != 0) &&
           std::chrono::steady_clock::now() < deadline);
  EXPECT_THAT(users.out, testing::AllOf(HasSubstr("Ana 500"), testing::Not(HasSubstr("Ana 600"))));
  EXPECT_THAT(status.out, HasSubstr(std::to_string(host.pid()))) << "the same process";
  EXPECT_LE(ports(), ports_before) << "none is left open";
  EXPECT_EQ(those("before-restore-").size(), 1U);
  EXPECT_EQ(those("restore.").size(), 0U);
  EXPECT_THAT(command({"restore", backup() + "-none"}).err, HasSubstr("is not there: give a backup"));
  EXPECT_THAT(output({"user", "list"}), HasSubstr("Ana 500")) << "which changes nothing";
  host.signal(SIGTERM);
  EXPECT_EQ(host.wait().status, 0);
}

TEST_F(AchostBackup, OneRestoreIsUnderWayAtATime) {
  fill(500);
  output({"backup", backup()});
  Achost host(simulated("good"));
  EXPECT_NE(host.next_line(), "");
  std::filesystem::create_directory(state() + "/restore.under-way");
  EXPECT_THAT(command({"restore", backup()}).err, HasSubstr("another restore is under way; remove it if none is"));
  EXPECT_EQ(those("restore.").size(), 1U) << "the other's";
  host.signal(SIGTERM);
  EXPECT_EQ(host.wait().status, 0);
}

TEST_F(AchostBackup, LeavesNothingInTheStateWhenWhoAskedIsKilled) {
  {
    refhost::AuditLog log(state());
    for (int i = 0; i < 40; ++i) {  // more than the socket holds
      log.append({.time = "t", .type = 1, .details = std::string(100'000, 'x')});
    }
  }
  Achost host(simulated("good"));
  EXPECT_NE(host.next_line(), "");
  for (int i = 0; i < 10; ++i) {
    Achost client({"backup", backup(), "--force", "--state", state()});
    std::this_thread::sleep_for(std::chrono::milliseconds(5 * i));  // the moment of the kill, not a wait
    client.signal(SIGKILL);
    client.wait();
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  Result result;
  do {
    result = command({"backup", backup(), "--force"});
  } while (result.status != 0 && std::chrono::steady_clock::now() < deadline);
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(output({"restore", backup(), "--check"}), backup() + " is whole\n");
  std::filesystem::create_directory(state() + "/backup.under-way");
  EXPECT_THAT(command({"backup", backup(), "--force"}).err, HasSubstr("another backup of "));
  host.signal(SIGKILL);
  host.wait();
  output({"backup", backup(), "--force"});
  EXPECT_EQ(those("backup.").size(), 0U);
}

TEST_F(AchostBackup, ARestoreThatIsKilledIsDoneAsAWholeOrNotAtAll) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  constexpr int kKills = 4;  // each of the commands takes many times as long
#else
  constexpr int kKills = 40;
#endif
  std::array<std::string, 2> contents;
  std::array<std::string, 2> backups;
  for (const std::size_t i : {0U, 1U}) {
    fill(i == 0 ? 500 : 600);
    contents[i] = everything();
    backups[i] = backup() + std::to_string(i);
    output({"backup", backups[i]});
  }
  std::size_t now = 1;
  for (int i = 0; i < kKills; ++i) {
    const std::size_t other = 1 - now;
    Achost restore({"restore", backups[other], "--state", state()});
    std::this_thread::sleep_for(std::chrono::microseconds(60'000 / kKills * i));  // the moment of the kill, not a wait
    restore.signal(SIGKILL);
    restore.wait();
    output({"config", "set", "system", "usb_port_enabled", "1"});  // the next owner
    const auto found = everything();
    now = found == contents[now] ? now : other;
    ASSERT_EQ(found, contents[now]) << "killed after " << 60'000 / kKills * i << " us";
    EXPECT_EQ(those("restore.").size(), 0U);
  }
  EXPECT_EQ(output({"check"}).find("damaged"), std::string::npos);
}

TEST_F(AchostBackup, OfRootInAnothersStateIsThatOnes) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can write in another's state";
  }
  constexpr uid_t kSomebody = 1234;
  fill(500);
  output({"backup", backup()});
  std::filesystem::remove_all(state());
  std::filesystem::create_directory(state());
  ASSERT_EQ(chown(state().c_str(), kSomebody, kSomebody), 0);
  ASSERT_EQ(chmod(state().c_str(), 0700), 0);
  output({"restore", backup()});
  for (const auto& entry : std::filesystem::recursive_directory_iterator(state())) {
    struct stat status {};
    ASSERT_EQ(stat(entry.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, kSomebody) << entry.path();
    EXPECT_EQ(status.st_mode & 07777U, entry.is_directory() ? 0700U : 0600U) << entry.path();
  }
}

}  // namespace
}  // namespace achost::test
