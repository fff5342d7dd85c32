// achost check.
#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>

#include "door/tests/process.h"
#include "refhost/audit_log.h"
#include "refhost/tests/support.h"

namespace achost::test {
namespace {

class AchostCheck : public testing::Test {
 protected:
  AchostCheck() {
    refhost::AuditLog log(directory.path());
    log.append({"t", 1, "a"});
    log.append({"t", 1, "b"});
    achost({"card", "add", "33", "--user", "7", "--state", directory.path()});
    achost({"config", "set", "read_interval", "777", "--state", directory.path()});
  }

  Result check(std::vector<std::string> more = {}) const {
    std::vector<std::string> words{"check", "--state", directory.path()};
    words.insert(words.end(), more.begin(), more.end());
    return achost(words);
  }

  void change(const char* file, const char* sql) const {
    SQLite::Database(directory.path() / file, SQLite::OPEN_READWRITE).exec(sql);
  }

  refhost::test::TemporaryDirectory directory;
};

TEST_F(AchostCheck, TellsOfEachStoreThatItIsWhole) {
  const auto result = check();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out,
            "settings: 1 stored setting, whole\n"
            "users: 1 user, 1 card, whole\n"
            "audit: 2 records, numbers 1 to 2, whole\n"
            "journal: 3 entries, numbers 1 to 3, whole\n");
}

TEST_F(AchostCheck, TellsItAsJson) {
  EXPECT_THAT(
      check({"--json"}).out,
      testing::HasSubstr(R"({"store":"audit","content":"2 records, numbers 1 to 2","whole":true,"faults":[]})"));
}

TEST_F(AchostCheck, ADamagedStoreHasAStatusOfItsOwn) {
  change("audit.db", "DELETE FROM audit_logs WHERE id = 2");
  auto result = check();
  EXPECT_EQ(result.status, 10);
  EXPECT_THAT(result.out, testing::HasSubstr("audit: 1 record, numbers 1 to 1, damaged\n  record 2 is missing\n"));
  EXPECT_EQ(result.err, "achost: damaged in " + directory.path().string() + ": audit\n");
  result = check({"--json"});
  EXPECT_THAT(result.out, testing::HasSubstr(R"("whole":false,"faults":["record 2 is missing"])"));
}

TEST_F(AchostCheck, ABrokenPageIsFoundAndTheFilesStayAsTheyAre) {
  const auto file = directory.path() / "users.db";
  constexpr int kPage = 4096;
  std::fstream(file, std::ios::in | std::ios::out | std::ios::binary).seekp(2 * kPage) << std::string(kPage, 'x');
  const auto before = refhost::test::content_of(file);
  const auto result = check();
  EXPECT_EQ(result.status, 10);
  EXPECT_THAT(result.out, testing::HasSubstr("users: "));
  EXPECT_THAT(result.err, testing::HasSubstr(": users"));
  EXPECT_EQ(refhost::test::content_of(file), before);
}

TEST_F(AchostCheck, AGoodCopyThatIsNoneIsFound) {
  std::ofstream(directory.path() / "settings.good", std::ios::app) << "x";
  const auto result = check();
  EXPECT_EQ(result.status, 10);
  EXPECT_THAT(result.out,
              testing::HasSubstr("settings: 1 stored setting, damaged\n  the good copy of the settings is"));
}

TEST_F(AchostCheck, ADirectoryWithNothingInItIsWhole) {
  const refhost::test::TemporaryDirectory empty;
  const auto result = achost({"check", "--state", empty.path()});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.out, testing::HasSubstr("users: nothing is stored, whole\n"));
  EXPECT_TRUE(std::filesystem::is_empty(empty.path()));
}

}  // namespace
}  // namespace achost::test
