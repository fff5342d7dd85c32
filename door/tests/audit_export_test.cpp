#include "door/cli/audit_export.h"

#include <gmock/gmock.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <fstream>

#include "door/base/failure.h"
#include "refhost/tests/support.h"

namespace achost {
namespace {

class AuditExport : public testing::Test {
 protected:
  AuditExport() {
    setenv("TZ", "XXX-2", 1);  // two hours east, as POSIX has it
    tzset();
  }
  ~AuditExport() override { unsetenv("TZ"); }

  const refhost::AuditEntry entry{
      .id = 7, .at = 1767323045006, .record = {.time = "t", .type = 1, .details = "a, \"b\"\nc"}};
};

TEST_F(AuditExport, TimesAreLocalUnlessTheyHaveAZone) {
  constexpr std::int64_t kMidnightUtc = 1767312000000;  // 2026-01-02
  constexpr std::int64_t kHour = 3600000;
  EXPECT_EQ(time_of("2026-01-02"), kMidnightUtc - 2 * kHour);
  EXPECT_EQ(time_of("2026-01-02 03:00"), kMidnightUtc + kHour);
  EXPECT_EQ(time_of("2026-01-02 03:00:01"), kMidnightUtc + kHour + 1000);
  EXPECT_EQ(time_of("2026-01-02T03:00:00Z"), kMidnightUtc + 3 * kHour);
  EXPECT_EQ(time_of("2026-01-02T03:00:00+01:00"), kMidnightUtc + 2 * kHour);
}

TEST_F(AuditExport, ATimeThatIsNoneIsRefused) {
  for (const char* text :
       {"", "2026-13-01", "2026-02-30", "2026-01-02 25:00", "2026-01-02x", "25:00", "-", " ago", "-1", "-1x", "-h",
        "1 hour", "ago", "1 hour ago ago", "-999999999999999999d", "next week", "-1h-1h"}) {
    EXPECT_THROW(time_of(text), Failure) << text;
  }
  EXPECT_THAT(refhost::test::failure_of([] { time_of("soon"); }),
              testing::StartsWith("\"soon\" is no time: give 2026-01-31"));
}

TEST_F(AuditExport, TimesMayBeGivenFromNowOn) {
  const auto now = std::chrono::system_clock::time_point(std::chrono::milliseconds(1767323045006));  // 05:04:05 there
  constexpr std::int64_t kMidnight = 1767304800000;
  constexpr std::int64_t kDay = 86400000;
  EXPECT_EQ(time_of("now", now), 1767323045006);
  EXPECT_EQ(time_of("today", now), kMidnight);
  EXPECT_EQ(time_of("yesterday", now), kMidnight - kDay);
  EXPECT_EQ(time_of("tomorrow", now), kMidnight + kDay);
  EXPECT_EQ(time_of("08:30", now), kMidnight + (8 * 60 + 30) * 60000);
  EXPECT_EQ(time_of("08:30:01", now), kMidnight + (8 * 60 + 30) * 60000 + 1000);
  EXPECT_EQ(time_of("-1h", now), 1767323045006 - 3600000);
  EXPECT_EQ(time_of("-1h30min", now), 1767323045006 - 5400000);
  EXPECT_EQ(time_of("-10s", now), 1767323045006 - 10000);
  EXPECT_EQ(time_of("1 hour ago", now), 1767323045006 - 3600000);
  EXPECT_EQ(time_of("2 days 3 hours ago", now), 1767323045006 - 2 * kDay - 3 * 3600000);
  EXPECT_EQ(time_of("1week ago", now), 1767323045006 - 7 * kDay);
}

// The day on which summer time begins has an hour less.
TEST(TimesOfDays, BeginWhereTheClockSaysSo) {
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  tzset();
  const auto noon = std::chrono::system_clock::time_point(std::chrono::seconds(1774778400));  // 2026-03-29 12:00
  EXPECT_EQ(time_of("today", noon), 1774738800000);
  EXPECT_EQ(time_of("tomorrow", noon) - time_of("today", noon), 23 * 3600000);
  unsetenv("TZ");
  tzset();
}

TEST_F(AuditExport, AFileTakesItsPlaceWhole) {
  const refhost::test::TemporaryDirectory directory;
  refhost::AuditLog(directory.path()).append(entry.record);
  const auto file = directory.path() / "out.csv";
  export_audit({.state = directory.path(),
                .types = {"config"},
                .since = "",
                .until = "",
                .last = {},
                .form = AuditForm::csv,
                .output = file});
  EXPECT_THAT(refhost::test::content_of(file), testing::EndsWith(",t\r\n"));
  EXPECT_FALSE(std::filesystem::exists(file.string() + ".part"));
}

// Who may write the directory cannot lead the export elsewhere by a name that it will use.
TEST_F(AuditExport, ALinkPlantedBesideTheFileIsNotFollowed) {
  const refhost::test::TemporaryDirectory directory;
  refhost::AuditLog(directory.path()).append(entry.record);
  const auto file = directory.path() / "out.csv";
  std::filesystem::create_symlink(directory.path() / "elsewhere", file.string() + ".part");
  export_audit({.state = directory.path(),
                .types = {},
                .since = "",
                .until = "",
                .last = {},
                .form = AuditForm::csv,
                .output = file});
  EXPECT_FALSE(std::filesystem::exists(directory.path() / "elsewhere"));
  EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(file)));
}

TEST_F(AuditExport, AFileOfManyRecordsHasThemAll) {
  const refhost::test::TemporaryDirectory directory;
  refhost::AuditLog log(directory.path());
  for (int i = 0; i < 40; ++i) {
    log.append({.time = "t", .type = 1, .details = std::string(5000, 'x')});
  }
  const auto file = directory.path() / "out.csv";
  export_audit({.state = directory.path(),
                .types = {},
                .since = "",
                .until = "",
                .last = {},
                .form = AuditForm::csv,
                .output = file});
  const std::string text = refhost::test::content_of(file);
  EXPECT_EQ(std::ranges::count(text, '\n'), 41);
  EXPECT_THAT(text, testing::EndsWith(",t\r\n"));
}

TEST_F(AuditExport, AFileThatCannotBeFinishedLeavesNothing) {
  const refhost::test::TemporaryDirectory directory;
  std::ofstream(directory.path() / "audit.db") << std::string(5000, 'x');
  EXPECT_NE(refhost::test::failure_of([&] {
              export_audit({.state = directory.path(),
                            .types = {},
                            .since = "",
                            .until = "",
                            .last = {},
                            .form = AuditForm::csv,
                            .output = directory.path() / "out.csv"});
            }),
            "nothing was thrown");
  for (const auto& left : std::filesystem::directory_iterator(directory.path())) {
    EXPECT_EQ(left.path().filename().string().find("out.csv"), std::string::npos) << left.path();
  }
}

TEST_F(AuditExport, AFileThatCannotBeWrittenIsNamedAndLeavesNothing) {
  const refhost::test::TemporaryDirectory directory;
  refhost::AuditLog(directory.path()).append(entry.record);
  const auto failure = refhost::test::failure_of([&] {
    export_audit({.state = directory.path(),
                  .types = {},
                  .since = "",
                  .until = "",
                  .last = {},
                  .form = AuditForm::csv,
                  .output = "/dev/full/x"});
  });
  EXPECT_EQ(failure, "cannot write /dev/full/x: Not a directory");
}

TEST_F(AuditExport, ATypeThatIsNoneNamesAll) {
  const auto failure = refhost::test::failure_of([&] {
    export_audit({.state = "/nowhere",
                  .types = {"boots"},
                  .since = "",
                  .until = "",
                  .last = {},
                  .form = AuditForm::csv,
                  .output = ""});
  });
  EXPECT_EQ(failure,
            "there is no audit type \"boots\": there are none, config, api, usb, network, time, online, menu, boot");
}

}  // namespace
}  // namespace achost
