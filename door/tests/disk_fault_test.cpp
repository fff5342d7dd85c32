// The stores on a disk that fails at the first, the second, the third ... call of a short story: a clear error each
// time, and afterwards everything that was acknowledged, and nothing that nobody wrote.
#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <set>
#include <string>

#include "ac/exception.h"
#include "door/journal/journal.h"
#include "door/journal/journal_file.h"
#include "door/services/enroller_service.h"
#include "door/services/people_import.h"
#include "door/services/people_text.h"
#include "door/services/user_store.h"
#include "door/tests/failing_vfs.h"
#include "door/tests/service_fixture.h"
#include "refhost/audit_log.h"
#include "refhost/log.h"
#include "refhost/settings_store.h"
#include "refhost/tests/support.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h
namespace {

// What the story's calls have come to.
struct Story {
  std::filesystem::path state;
  std::set<std::string> acknowledged;
  std::set<std::string> attempted;
  std::vector<std::string> errors;

  void attempt(const std::string& name, const std::function<void()>& step) {
    attempted.insert(name);
    try {
      step();
      acknowledged.insert(name);
    } catch (const ac::ac_exception& failure) {
      errors.push_back(failure.what());
    }
  }
};

// Each part opens its file again: that is a place to fail too.
void tell(Story& story) {
  for (const std::string details : {"first", "second"}) {
    story.attempt(details, [&] { refhost::AuditLog(story.state).append({"now", 1, details}); });
  }
  story.attempt("setting", [&] {
    refhost::SettingsStore(story.state, refhost::SettingsStore::Access::read_write).set("uhf", "read_interval", "777");
  });
  story.attempt("card", [&] { UserStore(story.state, UserStore::Access::read_write).bind(33, 7, "r"); });
  story.attempt("import", [&] {
    UserStore users(story.state, UserStore::Access::read_write);
    std::string text = "id,name,card\n";
    for (int id = 100; id < 200; ++id) {
      text += std::to_string(id) + "," + std::string(100, 'x') + "," + std::to_string(id) + "\n";
    }
    import_people(users, parse_people(text, "f"), {});
    EXPECT_EQ(users.owner_of(199), 199);
  });
}

// What is in the files.
std::set<std::string> found(const std::filesystem::path& state) {
  std::set<std::string> things;
  refhost::AuditLog::read(state, {}, [&](const refhost::AuditEntry& entry) { things.insert(entry.record.details); });
  if (refhost::SettingsStore(state, refhost::SettingsStore::Access::read_only).get("uhf", "read_interval") == "777") {
    things.insert("setting");
  }
  const UserStore users(state, UserStore::Access::read_only);
  if (users.owner_of(33) == 7) {
    things.insert("card");
    EXPECT_TRUE(users.user(7).has_value()) << "a card without its user";
  }
  if (const auto imported = users.users().size() - (things.contains("card") ? 1 : 0); imported != 0) {
    things.insert("import");
    EXPECT_EQ(imported, 100U) << "a part of an import";
    EXPECT_EQ(users.cards().size() - (things.contains("card") ? 1 : 0), 100U);
  }
  return things;
}

class DiskFault : public testing::TestWithParam<int> {
 protected:
  FailingVfs disk_;
};

TEST_P(DiskFault, IsAClearErrorAndLosesNothingAtWhateverCallItComes) {
  int call = 1;
  std::size_t failures = 0;
  for (bool failed = true; failed; ++call) {
    const TemporaryDirectory directory;
    Story story{directory.path(), {}, {}, {}};
    disk_.fail_at(call, GetParam());
    tell(story);
    failed = disk_.calls() >= call;
    EXPECT_TRUE(failed || story.errors.empty()) << "call " << call;
    failures += story.errors.size();
    for (const auto& error : story.errors) {
      EXPECT_THAT(error, testing::HasSubstr(directory.path().string())) << "call " << call;
      EXPECT_THAT(error, testing::Not(testing::HasSubstr("\n")));
    }
    disk_.fail_at(0, SQLITE_OK);
    Story again{directory.path(), {}, {}, {}};
    const auto there = found(directory.path());
    EXPECT_THAT(there, testing::IsSupersetOf(story.acknowledged)) << "call " << call;
    EXPECT_THAT(there, testing::IsSubsetOf(story.attempted)) << "call " << call;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
      EXPECT_EQ(entry.path().string().find("damaged"), std::string::npos) << "call " << call;
    }
    // The disk is well again.
    tell(again);
    EXPECT_THAT(again.errors, testing::IsEmpty()) << "call " << call;
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_GT(failures, 50U) << "the story is too short to tell anything";
}

// A log of the second version with more records than are kept.
void make_old_log(const std::filesystem::path& state) {
  SQLite::Database database(state / "audit.db", SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
  database.exec(
      "PRAGMA user_version = 2; CREATE TABLE audit_logs(id INTEGER PRIMARY KEY AUTOINCREMENT, time TEXT NOT NULL, "
      "type INTEGER NOT NULL, details TEXT NOT NULL, at INTEGER NOT NULL DEFAULT 0)");
  database.exec(
      "INSERT INTO audit_logs(time, type, details, at) WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
      "WHERE i < 3000) SELECT 't', 1, printf('%0200d', i), i FROM n");
}

// Bring the log up to date, and let the oldest go while a few come. Returns how many were acknowledged.
int renew(const std::filesystem::path& state) {
  int acknowledged = 0;
  try {
    refhost::AuditLog log(state);
    log.retain([] { return refhost::AuditRetention{.keep = 100, .youngest_to_go = 0}; });
    for (; acknowledged < 3; ++acknowledged) {
      log.append({"t", 1, "new"});
      while (log.tidy()) {
      }
    }
  } catch (const ac::ac_exception& failure) {
    EXPECT_THAT(failure.what(), testing::HasSubstr("audit.db"));
  }
  return acknowledged;
}

TEST_P(DiskFault, LosesNoRecordOfALogThatIsBroughtUpToDateAndShrinks) {
  const TemporaryDirectory old;
  make_old_log(old.path());
  refhost::log::set_threshold(refhost::log::Level::error);  // each time it says that it cannot shrink
  int failures = 0;
  bool failed = true;
  // Each place would take minutes: each of the first, where the steps are, and then every seventh.
  for (int call = 1; failed; call += call < 60 ? 1 : 7) {
    const TemporaryDirectory directory;
    std::filesystem::copy(old.path(), directory.path(), std::filesystem::copy_options::recursive);
    disk_.fail_at(call, GetParam());
    const int acknowledged = renew(directory.path());
    failed = disk_.calls() >= call;
    failures += failed ? 1 : 0;
    disk_.fail_at(0, SQLITE_OK);
    { const refhost::AuditLog again(directory.path()); }
    std::vector<std::int64_t> ids;
    int fresh = 0;
    refhost::AuditLog::read(directory.path(), {}, [&](const refhost::AuditEntry& entry) {
      ids.push_back(entry.id);
      fresh += entry.record.details == "new" ? 1 : 0;
    });
    ASSERT_GE(fresh, acknowledged) << "call " << call;
    ASSERT_GE(ids.size(), 100U) << "call " << call;
    ASSERT_EQ(ids.back() - ids.front() + 1, static_cast<std::int64_t>(ids.size())) << "a gap, call " << call;
    ASSERT_GE(ids.back(), 3000) << "call " << call;
  }
  EXPECT_GT(failures, 50) << "the story is too short to tell anything";
}

// Note a few things and let old ones go, each once the one before is on the disk or has failed. Returns how many were
// noted; none when the file cannot be opened.
std::int64_t keep_journal(const std::filesystem::path& state, std::vector<std::string>& errors) {
  std::int64_t noted = 0;
  try {
    Journal journal(state);
    journal.on_trouble([&](const std::string& text) { errors.push_back(text); });
    journal.retain([] { return JournalRetention{.keep = 1000, .oldest = 0}; });
    const auto before = journal.stored();
    for (; noted < 4; ++noted) {
      EXPECT_TRUE(journal.note({.kind = Kind::opening, .user = noted}));
      while (journal.is_writable() && journal.stored() <= before + noted) {
        journal.wait_beyond(before + noted, std::chrono::milliseconds(10));
      }
    }
  } catch (const ac::ac_exception& failure) {
    errors.emplace_back(failure.what());
  }
  return noted;
}

// A journal whose next entries make the oldest go.
void make_full_journal(const std::filesystem::path& state) {
  Journal journal(state);
  for (int i = 0; i < 1998; ++i) {
    journal.note({.kind = Kind::closing});
  }
}

// Whether the disk takes what action() writes.
bool is_taken(const std::function<void()>& action) {
  try {
    action();
    return true;
  } catch (const ac::ac_exception&) {
    return false;
  }
}

JournalEntry numbered(std::int64_t number) {
  return {.number = number, .time = {}, .boot = "b", .entry = {.kind = Kind::opening}};
}

TEST_P(DiskFault, ThatANewJournalMeetsIsTriedAgainAndTheDamagedOneKeptOnce) {
  refhost::log::set_threshold(refhost::log::Level::off);
  int failures = 0;
  bool failed = true;
  for (int call = 1; failed && !HasFailure(); ++call) {
    const TemporaryDirectory directory;
    JournalFile file(directory.path());
    file.store({numbered(1)});
    disk_.fail_at(call, GetParam());
    failures += is_taken([&] { file.begin_anew("a test says so"); }) ? 0 : 1;
    is_taken([&] { file.store({numbered(2)}); });
    failed = disk_.calls() >= call;
    disk_.fail_at(0, SQLITE_OK);
    file.store({numbered(2), numbered(3)});
    std::vector<std::int64_t> numbers;
    Journal::read(directory.path(), {}, [&](const JournalEntry& entry) { numbers.push_back(entry.number); });
    EXPECT_EQ(numbers, std::vector<std::int64_t>({2, 3})) << "call " << call;
    EXPECT_EQ(file.faults().size(), 1U) << "call " << call;
  }
  EXPECT_GT(failures, 5);
  refhost::log::set_threshold(refhost::log::Level::warning);
}

TEST_P(DiskFault, LosesNothingThatWasNotedInTheJournal) {
  refhost::log::set_threshold(refhost::log::Level::off);
  const TemporaryDirectory full;
  setenv("RUNTIME_DIRECTORY", full.path().c_str(), 1);
  make_full_journal(full.path());
  std::size_t failures = 0;
  bool failed = true;
  // Each of the first, where the steps are, and then every seventh.
  for (int call = 1; failed && !HasFailure(); call += call < 60 ? 1 : 7) {
    const TemporaryDirectory directory;
    setenv("RUNTIME_DIRECTORY", directory.path().c_str(), 1);
    std::filesystem::copy(full.path(), directory.path(), std::filesystem::copy_options::recursive);
    std::vector<std::string> errors;
    disk_.fail_at(call, GetParam());
    const auto noted = keep_journal(directory.path(), errors);
    failed = disk_.calls() >= call;
    failures += errors.size();
    for (const auto& error : errors) {
      EXPECT_TRUE(error.empty() || error.find((directory.path() / "journal.db").string()) != std::string::npos)
          << error;
    }
    disk_.fail_at(0, SQLITE_OK);
    { const Journal again(directory.path()); }
    std::vector<std::int64_t> users;
    std::int64_t last = 0;
    Journal::read(directory.path(), {}, [&](const JournalEntry& entry) {
      EXPECT_TRUE(last == 0 || entry.number == last + 1) << "a hole before " << entry.number << ", call " << call;
      last = entry.number;
      if (entry.entry.kind == Kind::opening) {
        users.push_back(entry.entry.user.value());
      }
    });
    EXPECT_EQ(static_cast<std::int64_t>(users.size()), noted) << "call " << call;
    EXPECT_TRUE(std::ranges::is_sorted(users));
    EXPECT_FALSE(std::filesystem::exists(directory.path() / "journal.db.damaged")) << "call " << call;
  }
  EXPECT_GT(failures, 10U) << "the story is too short to tell anything";
  unsetenv("RUNTIME_DIRECTORY");
  refhost::log::set_threshold(refhost::log::Level::warning);
}

class FullDisk : public Services {
 protected:
  FailingVfs disk_;
};

TEST_F(FullDisk, IsTheReasonOfAnEnrollmentThatFails) {
  UserStore users(directory(), UserStore::Access::read_write);
  const EnrollerService enroller(users);
  watch({{"enroller_error", {"error", "reason"}}});
  disk_.fail_at(1, SQLITE_FULL);
  refhost::send("enroll_card", {{"state", 1}, {"user_id", std::int64_t{7}}, {"registration", ""}});
  refhost::send("identifier_new_card", {{"value", std::int64_t{33}}});
  EXPECT_EQ(seen(1), std::vector<std::string>({"enroller_error error=0 reason=the card is not stored: the user "
                                               "database " +
                                               (directory() / "users.db").string() +
                                               " cannot be used: database or disk is full"}));
}

INSTANTIATE_TEST_SUITE_P(Each, DiskFault, testing::Values(SQLITE_IOERR, SQLITE_FULL),
                         [](const auto& instance) { return instance.param == SQLITE_FULL ? "Full" : "Broken"; });

}  // namespace
}  // namespace achost::test
