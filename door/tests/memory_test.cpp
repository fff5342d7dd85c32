// The stores in a process that is short of memory: each allocation of a story fails once, and each time there is an
// error, everything that was acknowledged, nothing that nobody wrote, and no lock that stays.
//
// The environment variable MEMORY_STEP gives which: each (1), every seventh (7) and so on.
#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>
#include <sqlite3.h>

#include <cstdlib>
#include <functional>
#include <iostream>
#include <new>
#include <optional>

#include "ac/exception.h"
#include "door/services/user_store.h"
#include "door/tests/failing_memory.h"
#include "refhost/audit_log.h"
#include "refhost/log.h"
#include "refhost/settings_store.h"
#include "refhost/tests/support.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h
namespace {

using refhost::AuditLog;
using refhost::SettingsStore;

sqlite3_mem_methods memory_of_sqlite;

// Before SQLite is used for the first time.
void make_sqlite_fail_too() {
  sqlite3_config(SQLITE_CONFIG_GETMALLOC, &memory_of_sqlite);
  sqlite3_mem_methods methods = memory_of_sqlite;
  methods.xMalloc = [](int size) { return allocation_fails() ? nullptr : memory_of_sqlite.xMalloc(size); };
  methods.xRealloc = [](void* memory, int size) {
    return allocation_fails() ? nullptr : memory_of_sqlite.xRealloc(memory, size);
  };
  ASSERT_EQ(sqlite3_config(SQLITE_CONFIG_MALLOC, &methods), SQLITE_OK);
}

class Story {
 public:
  explicit Story(const std::filesystem::path& directory) : directory_(directory) {}

  // All steps, in which that allocation fails. Those behind the one that fails find memory again.
  void tell(std::int64_t failing) {
    failing_ = failing;
    attempt("audit.db", [this] { log_.emplace(directory_); });
    attempt("users.db", [this] { users_.emplace(directory_, UserStore::Access::read_write); });
    attempt("settings.db", [this] { settings_.emplace(directory_, SettingsStore::Access::read_write); });
    for (int i = 1; i <= 3; ++i) {
      attempt("record", [this] { log_->append({"now", 1, "a record that is too long to be kept in the string"}); });
    }
    attempt("audit.db", [this] {
      while (log_->tidy()) {
      }
    });
    attempt("user", [this] { users_->put({.id = 7, .name = "Ana"}); });
    attempt("card", [this] { users_->bind(33, 7, "a registration that is too long to be kept in the string"); });
    attempt("owner", [this] { EXPECT_EQ(users_->owner_of(33), 7); });
    attempt("setting", [this] { settings_->set("uhf", "read_interval", "777"); });
    attempt("import", [this] {
      settings_->set({{"uhf", "read_interval", "778"}, {"uhf", "read_interval_diff_tags", "779"}});
    });
  }

  std::int64_t allocations() const { return allocations_; }
  std::int64_t errors() const { return errors_; }

  // Nothing of it is missing, whatever has failed: what was not done at first was done again.
  void expect_told() {
    expect_unlocked();
    log_.reset();
    users_.reset();
    settings_.reset();
    std::int64_t records = 0;
    AuditLog::read(directory_, {}, [&](const auto&) { ++records; });
    EXPECT_GE(records, 3);
    EXPECT_LE(records, 3 + errors_);
    const UserStore users(directory_, UserStore::Access::read_only);
    EXPECT_EQ(users.owner_of(33), 7);
    EXPECT_EQ(users.users(), std::vector<User>({{7, "Ana"}}));
    const SettingsStore settings(directory_, SettingsStore::Access::read_only);
    EXPECT_EQ(settings.get("uhf", "read_interval"), "778");
    EXPECT_EQ(settings.get("uhf", "read_interval_diff_tags"), "779");
    for (const auto& report :
         {AuditLog::inspect(directory_), UserStore::inspect(directory_), SettingsStore::inspect(directory_)}) {
      EXPECT_THAT(report.faults, testing::IsEmpty());
    }
    for (const auto& entry : std::filesystem::directory_iterator(directory_)) {
      EXPECT_EQ(entry.path().string().find(".damaged"), std::string::npos) << entry.path();
    }
  }

 private:
  // Whoever gets an error tries again.
  void attempt(const std::string& name, const std::function<void()>& step) {
    for (int attempts = 0; attempts < 2; ++attempts) {
      fail_allocation(failing_ - allocations_);
      try {
        step();
        allocations_ += stop_failing();
        return;
      } catch (const std::bad_alloc&) {
        allocations_ += stop_failing();
      } catch (const ac::ac_exception& failure) {
        allocations_ += stop_failing();
        EXPECT_THAT(failure.what(), testing::HasSubstr(".db")) << name;
      }
      ++errors_;
    }
    ADD_FAILURE() << name << " fails again, with memory";
  }

  void expect_unlocked() const {
    for (const char* file : {"audit.db", "users.db", "settings.db"}) {
      EXPECT_NO_THROW(SQLite::Database(directory_ / file, SQLite::OPEN_READWRITE).exec("BEGIN IMMEDIATE; ROLLBACK"))
          << file;
    }
  }

  std::filesystem::path directory_;
  std::optional<AuditLog> log_;
  std::optional<UserStore> users_;
  std::optional<SettingsStore> settings_;
  std::int64_t failing_ = 0;
  std::int64_t allocations_ = 0;
  std::int64_t errors_ = 0;
};

TEST(Memory, ThatRunsOutAtAnyAllocationIsAnErrorAndLosesNothing) {
  make_sqlite_fail_too();
  if (std::filesystem::exists("/dev/shm")) {
    setenv("TMPDIR", "/dev/shm", 1);  // the disk is not what is tested
  }
  refhost::log::set_threshold(refhost::log::Level::off);
  const char* const wanted = std::getenv("MEMORY_STEP");
  const std::int64_t step = wanted == nullptr ? USUAL_STEP : std::atoi(wanted);
  std::int64_t failed = 0;
  std::int64_t errors = 0;
  std::int64_t all = 0;
  for (std::int64_t failing = 1; failing == 1 || failing <= all; failing += step) {
    const TemporaryDirectory directory;
    Story story(directory.path());
    story.tell(failing);
    all = std::max(all, story.allocations());
    ++failed;
    errors += story.errors();
    story.expect_told();
    ASSERT_FALSE(HasFailure()) << "allocation " << failing;
  }
  EXPECT_GT(errors, failed / 2) << "SQLite can do without a few of them";
  std::cout << failed << " of " << all << " allocations of the story have failed, one each time; " << errors
            << " errors were said\n";
}

}  // namespace
}  // namespace achost::test
