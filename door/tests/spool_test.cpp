#include "door/journal/spool.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <thread>

#include "refhost/tests/support.h"

namespace achost::test {
using namespace refhost::test;  // NOLINT: the helpers of tests/support.h
namespace {

constexpr std::size_t kSize = 4096;

using Texts = std::vector<std::string>;

class SpoolTest : public testing::Test {
 protected:
  std::filesystem::path file() const { return directory_.path() / "spool"; }

  static Texts records(Spool& spool, std::size_t most = SIZE_MAX) {
    Texts texts;
    spool.look(most, [&](std::string_view record) { texts.emplace_back(record); });
    return texts;
  }

 private:
  TemporaryDirectory directory_;
};

TEST_F(SpoolTest, GivesWhatWasPutInItsOrderAlsoToTheNextProcess) {
  {
    Spool spool(file(), kSize);
    EXPECT_TRUE(spool.put("one"));
    EXPECT_TRUE(spool.put(""));
    EXPECT_TRUE(spool.put("three"));
  }
  Spool next(file(), kSize);
  EXPECT_FALSE(next.is_damaged());
  EXPECT_EQ(records(next), Texts({"one", "", "three"}));
  EXPECT_EQ(records(next, 2), Texts({"one", ""})) << "they stay until they are dropped";
  next.drop_to(next.look(2, [](std::string_view) {}));
  EXPECT_EQ(records(next), Texts({"three"}));
}

TEST_F(SpoolTest, TakesNothingWhenItIsFullAndGoesOnWhenThereIsRoom) {
  Spool spool(file(), kSize);
  const std::string text(100, 'x');
  std::size_t count = 0;
  while (spool.put(text)) {
    ++count;
  }
  EXPECT_GT(count, 30U);
  EXPECT_EQ(records(spool).size(), count);
  spool.drop_to(spool.look(1, [](std::string_view) {}));
  EXPECT_TRUE(spool.put(text));
  EXPECT_FALSE(spool.put(text));
}

TEST_F(SpoolTest, GoesRoundItsRingWithRecordsOfEverySize) {
  Spool spool(file(), kSize);
  for (std::size_t i = 0; i < 3000; ++i) {
    const std::string text(i % 97, static_cast<char>('a' + i % 26));
    ASSERT_TRUE(spool.put(text));
    ASSERT_EQ(records(spool), Texts({text})) << i;
    spool.drop_to(spool.look(1, [](std::string_view) {}));
  }
  EXPECT_TRUE(spool.is_empty());
}

// A process that is killed while it puts leaves whole records, each in its place.
TEST_F(SpoolTest, AKillInTheMiddleOfARecordLeavesNoPartOfIt) {
  for (int i = 0; i < 50; ++i) {
    std::filesystem::remove(file());
    const pid_t child = fork();
    if (child == 0) {
      Spool spool(file(), 1024 * 1024);
      for (std::uint32_t number = 0;; ++number) {
        spool.put(std::to_string(number) + std::string(1000, 'x'));
        if (number % 500 == 499) {
          spool.drop_to(spool.look(500, [](std::string_view) {}));
        }
      }
    }
    usleep(static_cast<useconds_t>(1000 + 100 * i));  // anywhere
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    Spool spool(file(), 1024 * 1024);
    ASSERT_FALSE(spool.is_damaged());
    std::uint64_t next = 0;
    spool.look(SIZE_MAX, [&](std::string_view record) {
      const auto number = std::stoull(std::string(record));
      ASSERT_EQ(record.size(), std::to_string(number).size() + 1000);
      ASSERT_TRUE(next == 0 || number == next) << number;
      next = number + 1;
    });
    ASSERT_FALSE(spool.is_damaged());
  }
}

TEST_F(SpoolTest, ARecordOfWhichAPartIsWrongIsNoneAndSaysSo) {
  {
    Spool spool(file(), kSize);
    spool.put("whole");
    spool.put("damaged");
  }
  std::string content = content_of(file());
  content.at(content.find("damaged") + 2) ^= 1;
  std::ofstream(file(), std::ios::binary) << content;
  Spool spool(file(), kSize);
  EXPECT_EQ(records(spool), Texts({"whole"}));
  EXPECT_TRUE(spool.is_damaged());
}

TEST_F(SpoolTest, WhatIsNoSpoolIsBegunAnewAndSaysSo) {
  std::ofstream(file()) << std::string(kSize, 'x');
  chmod(file().c_str(), 0600);
  Spool spool(file(), kSize);
  EXPECT_TRUE(spool.is_damaged());
  EXPECT_TRUE(spool.put("one"));
  EXPECT_EQ(records(spool), Texts({"one"}));
}

TEST_F(SpoolTest, IsForItsUserAloneAndFollowsNoLink) {
  {
    const Spool spool(file(), kSize);
    EXPECT_EQ(std::filesystem::status(file()).permissions(), std::filesystem::perms(0600));
  }
  const auto link = file().parent_path() / "link";
  std::filesystem::create_symlink(file(), link);
  EXPECT_THROW(Spool(link, kSize), std::system_error);
  const auto second = file().parent_path() / "second";
  std::filesystem::create_hard_link(file(), second);
  EXPECT_THROW(Spool(second, kSize), std::system_error) << "another name for it";
  std::filesystem::remove(second);
  chmod(file().c_str(), 0660);
  EXPECT_THROW(Spool(file(), kSize), std::system_error) << "others may write it";
}

// Its room cannot run out later, which would end the process.
TEST_F(SpoolTest, TakesItsRoomAtTheBeginning) {
  const Spool spool(file(), 1024 * 1024);
  struct stat status {};
  ASSERT_EQ(stat(file().c_str(), &status), 0);
  EXPECT_GE(status.st_blocks * 512, 1024 * 1024);
}

TEST_F(SpoolTest, WithoutAFileItHoldsRecordsAllTheSame) {
  Spool spool(kSize);
  EXPECT_TRUE(spool.put("one"));
  EXPECT_EQ(records(spool), Texts({"one"}));
  EXPECT_TRUE(spool.file().empty());
}

// One puts and one takes, without a lock.
TEST_F(SpoolTest, OnePutsWhileAnotherTakes) {
  Spool spool(file(), kSize);
  constexpr int kRecords = 20'000;
  std::thread putter([&] {
    for (int i = 0; i < kRecords;) {
      i += spool.put(std::to_string(i)) ? 1 : 0;
    }
  });
  int next = 0;
  while (next < kRecords) {
    spool.drop_to(spool.look(SIZE_MAX, [&](std::string_view record) {
      ASSERT_EQ(record, std::to_string(next));
      ++next;
    }));
  }
  putter.join();
}

TEST(SpoolFiles, LieWhereFilesAreMemoryAndAtLastInTheStateDirectory) {
  setenv("RUNTIME_DIRECTORY", "/run/a:/run/b", 1);
  setenv("XDG_RUNTIME_DIR", "relative", 1);
  const auto files = spool_files("/state", "name");
  unsetenv("RUNTIME_DIRECTORY");
  unsetenv("XDG_RUNTIME_DIR");
  EXPECT_EQ(files,
            std::vector<std::filesystem::path>(
                {"/run/a/name", "/run/user/" + std::to_string(geteuid()) + "/name", "/dev/shm/name", "/state/name"}));
}

}  // namespace
}  // namespace achost::test
