#include "ac/util.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <ctime>
#include <set>
#include <string>
#include <thread>

#include "ac/exception.h"
#include "refhost/instance_lock.h"
#include "refhost/tests/support.h"

namespace refhost::test {
namespace {

TEST(Util, DateAndTimeIsLocalWithMillisecondsAndZone) {
  std::array<char, 64> buffer{};
  buffer.fill('x');
  const std::time_t before = std::time(nullptr);
  ac::util::get_formatted_date_and_time_ms(buffer.data());
  const std::time_t after = std::time(nullptr);
  const std::string text = buffer.data();
  ASSERT_THAT(text, testing::MatchesRegex(R"([0-9-]{10}T[0-9:]{8}\.[0-9]{3}[+-][0-9]{2}:[0-9]{2})"));
  std::tm fields{};
  ASSERT_NE(strptime((text.substr(0, 19) + text.substr(23)).c_str(), "%Y-%m-%dT%H:%M:%S%z", &fields), nullptr);
  const long offset = fields.tm_gmtoff;
  const std::time_t told = timegm(&fields) - offset;
  EXPECT_GE(told, before);
  EXPECT_LE(told, after);
}

TEST(Util, DateAndTimeHasTheZoneOfThePlace) {
  for (const auto& [place, zone] : std::vector<std::pair<const char*, std::string>>{
           {"<-0330>3:30", "-03:30"}, {"<+0545>-5:45", "+05:45"}, {"UTC0", "+00:00"}}) {
    setenv("TZ", place, 1);
    tzset();
    std::array<char, 64> buffer{};
    ac::util::get_formatted_date_and_time_ms(buffer.data());
    EXPECT_THAT(buffer.data(), testing::EndsWith(zone));
  }
  unsetenv("TZ");
  tzset();
}

TEST(Util, UuidIsARandomOne) {
  constexpr const char* kExpected = "[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}";
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    const std::string uuid = ac::util::identifier::generate_new_uuid();
    ASSERT_THAT(uuid, testing::MatchesRegex(kExpected));
    seen.insert(uuid);
  }
  EXPECT_EQ(seen.size(), 1000U);
}

TEST(Util, ThreadNameIsCutToWhatTheSystemKeeps) {
  std::thread([] {
    ac::util::set_thread_name("uhf_write_threads", pthread_self());
    std::array<char, 16> name{};
    pthread_getname_np(pthread_self(), name.data(), name.size());
    EXPECT_STREQ(name.data(), "uhf_write_threa");
  }).join();
}

TEST(Util, SystemReturnsTheWaitStatus) {
  const int status = ac::util::system("exit 3");
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST(Util, WhatSystemStartsInheritsNothingThatIsOpen) {
  const int file = open("/dev/null", O_RDONLY);  // as a plug-in opens its reader's port
  const int status = ac::util::system(("test -e /proc/$$/fd/" + std::to_string(file)).c_str());
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_EQ(ac::util::system("test -e /proc/$$/fd/1"), 0);
  EXPECT_EQ(close(file), 0) << "it stays open here";
}

TEST(InstanceLock, SecondHolderIsRefusedWithThePidOfTheFirst) {
  const TemporaryDirectory directory;
  const InstanceLock lock(directory.path());
  EXPECT_EQ(failure_of([&] { InstanceLock second(directory.path()); }),
            "the state directory " + directory.path().string() + " is in use by process " + std::to_string(getpid()) +
                ": end it first, or give another directory with --state");
}

TEST(InstanceLock, IsFreeAgainWhenItsHolderHasGone) {
  const TemporaryDirectory directory;
  { const InstanceLock lock(directory.path()); }
  EXPECT_NO_THROW(InstanceLock(directory.path()));
}

TEST(InstanceLock, IsNotTakenThroughALink) {
  const TemporaryDirectory directory;
  std::filesystem::create_symlink(directory.path() / "elsewhere", directory.path() / "lock");
  EXPECT_EQ(failure_of([&] { InstanceLock lock(directory.path()); }),
            (directory.path() / "lock").string() + " is a symbolic link, which this program has not made: remove it");
  EXPECT_FALSE(std::filesystem::exists(directory.path() / "elsewhere"));
}

TEST(InstanceLock, DirectoryThatEveryoneMayWriteIsRefused) {
  const TemporaryDirectory directory;
  for (const unsigned mode : {0777U, 01777U, 0702U}) {
    std::filesystem::permissions(directory.path(), static_cast<std::filesystem::perms>(mode));
    EXPECT_THAT(failure_of([&] { InstanceLock lock(directory.path()); }),
                testing::StartsWith("the state directory " + directory.path().string() +
                                    " may be written by everyone: chmod o-w " + directory.path().string()));
  }
  std::filesystem::permissions(directory.path(), std::filesystem::perms(0770));
  EXPECT_NO_THROW(InstanceLock(directory.path()));
}

TEST(InstanceLock, DirectoryThatCannotBeMadeIsAnError) {
  EXPECT_THROW(InstanceLock("/proc/no/such"), ac::ac_exception);
}

}  // namespace
}  // namespace refhost::test
