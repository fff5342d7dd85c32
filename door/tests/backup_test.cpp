// Backups at the places where it matters: a restore that ends before each of its renames, and each kind of damage.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <string>

#include "ac/exception.h"
#include "door/backup/backup_file.h"
#include "door/backup/restore.h"
#include "door/backup/snapshot.h"
#include "door/backup/stored_files.h"
#include "door/control/own_stores.h"
#include "refhost/tests/support.h"

namespace {

int renames_left = -1;  // before this process ends as if it were killed; negative: it does not

}  // namespace

// In place of the C library's.
extern "C" int rename(const char* from, const char* to) noexcept {
  if (renames_left == 0) {
    _exit(42);
  }
  renames_left -= renames_left > 0 ? 1 : 0;
  return static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

namespace achost::test {
namespace {

using refhost::test::content_of;
using refhost::test::TemporaryDirectory;

void fill(const std::filesystem::path& state, const std::string& mark) {
  OwnStores stores(state);
  stores.lock();
  stores.users().put({.id = 7, .name = mark});
  stores.change({{"uhf", "read_interval", mark}});
  refhost::AuditLog(state).append({.time = "t", .type = 1, .details = mark});
}

// What each store holds, as the next owner finds it.
std::set<std::string> marks(const std::filesystem::path& state) {
  OwnStores stores(state);
  stores.lock();
  std::set<std::string> found = {stores.users().users().at(0).name, *stores.settings().get("uhf", "read_interval")};
  std::string last;
  stores.audit().read({}, [&last](const refhost::AuditEntry& entry) {
    last = entry.record.details;
    return true;
  });
  found.insert(last);
  return found;
}

void write_backup(const std::filesystem::path& state, const std::filesystem::path& file) {
  BackupWriter writer(file, true);
  Snapshot(state).read([&writer](const std::string& name, std::int64_t size) { writer.begin(name, size); },
                       [&writer](std::string_view piece) {
                         writer.add(piece);
                         return true;
                       });
  writer.close();
}

class Backup : public testing::Test {
 protected:
  std::filesystem::path backup() const { return place.path() / "backup"; }

  TemporaryDirectory place;
  TemporaryDirectory state;
};

// Whether it has come to its end.
bool restore_with(int renames, const std::filesystem::path& backup, const std::filesystem::path& state) {
  const pid_t child = fork();
  if (child == 0) {
    renames_left = renames;
    restore(backup, state);
    _exit(0);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && (WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == 42)) << status;
  return status == 0;
}

TEST_F(Backup, ARestoreThatEndsBeforeAnyOfItsRenamesIsDoneToItsEndOrNotAtAll) {
  fill(state.path(), "500");
  write_backup(state.path(), backup());
  std::set<std::string> outcomes;
  bool has_ended = false;
  for (int renames = 0; !has_ended; ++renames) {
    ASSERT_LT(renames, 100);
    fill(state.path(), "600");
    has_ended = restore_with(renames, backup(), state.path());
    const auto found = marks(state.path());
    ASSERT_EQ(found.size(), 1U) << "after " << renames << " renames";
    outcomes.insert(found.begin(), found.end());
    for (const auto& file : stored_files()) {
      EXPECT_EQ(file.inspect(state.path()).faults, std::vector<std::string>()) << renames;
    }
  }
  EXPECT_EQ(outcomes, (std::set<std::string>{"500", "600"}));
}

TEST_F(Backup, WhatIsCutOffWhileItIsPutInPlaceMayBeCutOffAgain) {
  fill(state.path(), "500");
  write_backup(state.path(), backup());
  fill(state.path(), "600");
  EXPECT_FALSE(restore_with(5, backup(), state.path()));
  for (int i = 0; i < 3; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      renames_left = 1;
      OwnStores(state.path()).lock();
      _exit(0);
    }
    waitpid(child, nullptr, 0);
  }
  EXPECT_EQ(marks(state.path()), std::set<std::string>{"500"});
}

TEST_F(Backup, AByteThatIsNotAsItWasChangesNoFileUnseen) {
  fill(state.path(), "500");
  write_backup(state.path(), backup());
  const auto good = content_of(backup());
  const TemporaryDirectory whole;
  unpack_backup(backup(), whole.path());
  constexpr std::size_t kStep = 61;
  int refused = 0;
  for (std::size_t at = 0; at < good.size(); at += kStep) {
    std::string bad = good;
    bad[at] = static_cast<char>(bad[at] ^ 0x10);
    std::ofstream(backup(), std::ios::binary) << bad;
    const TemporaryDirectory unpacked;
    try {
      unpack_backup(backup(), unpacked.path());
    } catch (const ac::ac_exception&) {
      ++refused;
      continue;
    }
    for (const auto& file : stored_files()) {
      const auto wanted = whole.path() / file.name;
      ASSERT_EQ(std::filesystem::exists(wanted), std::filesystem::exists(unpacked.path() / file.name)) << at;
      if (std::filesystem::exists(wanted)) {
        ASSERT_TRUE(content_of(wanted) == content_of(unpacked.path() / file.name)) << at;
      }
    }
  }
  EXPECT_GT(refused, static_cast<int>(good.size() / kStep / 2));
}

TEST_F(Backup, ThatIsCutOffIsRefused) {
  fill(state.path(), "500");
  write_backup(state.path(), backup());
  const auto good = content_of(backup());
  for (std::size_t size = 0; size < good.size(); size += 4096) {
    std::ofstream(backup(), std::ios::binary) << good.substr(0, size);
    const TemporaryDirectory unpacked;
    EXPECT_THROW(unpack_backup(backup(), unpacked.path()), ac::ac_exception) << size;
  }
}

TEST_F(Backup, ASecondSnapshotAtATimeIsRefused) {
  fill(state.path(), "500");
  {
    const Snapshot first(state.path());
    EXPECT_THAT(refhost::test::failure_of([&] { Snapshot second(state.path()); }),
                testing::HasSubstr("another backup of "));
  }
  EXPECT_NO_THROW(Snapshot(state.path()));
}

}  // namespace
}  // namespace achost::test
