#include "refhost/loader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>

#include "ac/post_office.h"
#include "refhost/tests/support.h"

namespace refhost::test {
namespace {

std::string plugin(const std::string& name) { return std::string(TEST_PLUGINS) + "/plugin_" + name + ".so"; }

struct Outcome {
  std::optional<LoadError::Stage> stage;
  std::string text;
};

Outcome failure_to_load(const std::string& path) {
  try {
    load(path);
  } catch (const LoadError& failure) {
    return {failure.stage(), failure.what()};
  }
  return {};
}

void expect_refused(const std::string& path, const std::string& reason) {
  const auto outcome = failure_to_load(path);
  EXPECT_EQ(outcome.stage, LoadError::Stage::load);
  EXPECT_EQ(outcome.text, "cannot load the plug-in " + path + ": " + reason);
}

TEST(Loader, GoodPluginIsLoadedWithItsNameAndMainFunction) {
  const auto loaded = load(plugin("good"));
  EXPECT_EQ(loaded.name, "good");
  EXPECT_EQ(loaded.path, plugin("good"));
  EXPECT_NE(loaded.run, nullptr);
}

TEST(Loader, LoadedPluginGetsItsMessages) {
  Event answered;
  const Subscriber subscriber("s", {on("good.pong", [&](ac::Message*) { answered.set(); })});
  const auto loaded = load(plugin("good"));
  ac::PostOffice::send_message(message("good.ping"));
  EXPECT_TRUE(answered.wait());
}

TEST(Loader, RelativePathIsRefused) { expect_refused("lib/uhf.so", "give its absolute path"); }

TEST(Loader, MissingFileIsRefused) { expect_refused("/no/such/plugin.so", "there is no such file"); }

TEST(Loader, DirectoryIsRefused) { expect_refused("/tmp", "there is no such file"); }

TEST(Loader, FileThatIsNoSharedObjectIsRefused) {
  const TemporaryDirectory directory;
  const std::string path = directory.path() / "text.so";
  std::ofstream(path) << "text";
  expect_refused(path, "file too short");
}

TEST(Loader, ALanesMessagesPassAHandlerThatWaits) {
  const auto loaded = load(plugin("lanes"), {{"urgent", {"lanes.press"}}});
  Recorder<int> seen;
  const Subscriber witness("witness", {on("lanes.waited", [&](ac::Message* answer) {
                             int value = -1;
                             answer->get_int("seen", &value);
                             seen.add(value);
                           })});
  ac::PostOffice::send_message(message("lanes.wait"));
  ac::PostOffice::send_message(message("lanes.press"));
  EXPECT_EQ(seen.wait_for(1), std::vector<int>{1});
}

// A copy of a good plug-in in a directory of the test's own.
class LoaderTrust : public testing::Test {
 protected:
  void SetUp() override { std::filesystem::copy_file(plugin("good"), path_); }

  static void allow(const std::filesystem::path& place, unsigned mode) {
    std::filesystem::permissions(place, static_cast<std::filesystem::perms>(mode));
  }

  void expect_replaceable(const std::string& path, const std::string& who, const std::filesystem::path& where) {
    expect_refused(path, who + " can put another one there, as " + where.string() +
                             " may be written: only root and the user that runs this program may be able to");
  }

  const TemporaryDirectory directory_;
  const std::filesystem::path path_ = directory_.path() / "plugin.so";
};

TEST_F(LoaderTrust, WhatOnlyThisUserCanWriteIsLoaded) { EXPECT_EQ(failure_to_load(path_).text, ""); }

TEST_F(LoaderTrust, AFileThatEveryoneCanWriteIsRefused) {
  allow(path_, 0646);
  expect_replaceable(path_, "everyone", path_);
}

TEST_F(LoaderTrust, ADirectoryThatEveryoneCanWriteIsRefused) {
  allow(directory_.path(), 0707);
  expect_replaceable(path_, "everyone", directory_.path());
}

TEST_F(LoaderTrust, ADirectoryInWhichNobodyCanReplaceWhatIsOursIsNot) {
  allow(directory_.path(), 01777);
  EXPECT_EQ(failure_to_load(path_).text, "");
}

TEST_F(LoaderTrust, ASymbolicLinkIsNoWayAround) {
  const auto open = directory_.path() / "open";
  std::filesystem::create_directory(open);
  allow(open, 0777);
  std::filesystem::create_symlink(path_, open / "link.so");
  expect_replaceable(open / "link.so", "everyone", open);
  std::filesystem::rename(path_, open / "plugin.so");
  std::filesystem::create_symlink(open / "plugin.so", path_);
  expect_replaceable(path_, "everyone", open);
}

TEST_F(LoaderTrust, AnotherUsersFileAndAGroupsAreRefused) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "only root can give files away";
  }
  constexpr uid_t kNobody = 65534;
  ASSERT_EQ(chown(path_.c_str(), 0, kNobody), 0);
  allow(path_, 0664);
  expect_replaceable(path_, "group 65534", path_);
  ASSERT_EQ(chown(path_.c_str(), kNobody, 0), 0);
  expect_replaceable(path_, "user 65534", path_);
}

TEST_F(LoaderTrust, ALinkInTheMiddleOfAChainCounts) {
  const auto open = directory_.path() / "open";
  std::filesystem::create_directory(open);
  allow(open, 0777);
  std::filesystem::create_symlink(path_, open / "middle.so");
  std::filesystem::create_symlink(open / "middle.so", directory_.path() / "first.so");
  expect_replaceable(directory_.path() / "first.so", "everyone", open);
}

TEST_F(LoaderTrust, LinksThatLeadInACircleAreAnError) {
  std::filesystem::create_symlink("b.so", directory_.path() / "a.so");
  std::filesystem::create_symlink("a.so", directory_.path() / "b.so");
  EXPECT_THAT(failure_to_load(directory_.path() / "a.so").text,
              testing::HasSubstr("Too many levels of symbolic links"));
}

TEST_F(LoaderTrust, ARelativeLinkAndAStepUpLeadToTheFile) {
  std::filesystem::create_directory(directory_.path() / "below");
  std::filesystem::create_symlink("../plugin.so", directory_.path() / "below/link.so");
  EXPECT_EQ(failure_to_load(directory_.path() / "below/../below/link.so").text, "");
}

// An access control list as the kernel takes it: the owner's, a user's, the owning group's, the mask's and the others'
// rights.
std::string list_with(std::uint32_t user, std::uint16_t rights, std::uint16_t mask) {
  std::string bytes("\x02\0\0\0", 4);
  const auto add = [&](std::uint16_t tag, std::uint16_t may, std::uint32_t id) {
    for (const auto part : {std::uint32_t{tag} | std::uint32_t{may} << 16U, id}) {
      for (unsigned shift = 0; shift < 32; shift += 8) {
        bytes += static_cast<char>(part >> shift);
      }
    }
  };
  constexpr std::uint32_t kNobody = 0xFFFFFFFF;
  add(0x01, 6, kNobody);
  add(0x02, rights, user);
  add(0x04, 4, kNobody);
  add(0x10, mask, kNobody);
  add(0x20, 4, kNobody);
  return bytes;
}

TEST_F(LoaderTrust, AUserWhomAnAccessListLetsWriteIsNamed) {
  constexpr std::uint32_t kSomebody = 65533;
  const auto allow_somebody = [](const std::filesystem::path& place, std::uint16_t mask) {
    const std::string list = list_with(kSomebody, 6, mask);
    return setxattr(place.c_str(), "system.posix_acl_access", list.data(), list.size(), 0) == 0;
  };
  if (!allow_somebody(path_, 4)) {
    GTEST_SKIP() << "this file system has no access control lists";
  }
  EXPECT_EQ(failure_to_load(path_).text, "") << "the mask takes the right away";
  ASSERT_TRUE(allow_somebody(path_, 6));
  expect_replaceable(path_, "user 65533", path_);
  ASSERT_TRUE(allow_somebody(path_, 4));
  ASSERT_TRUE(allow_somebody(directory_.path(), 7));
  expect_replaceable(path_, "user 65533", directory_.path());
}

// Another, who may write `open`, leads the way there and back again as fast as can be while the host starts.
TEST_F(LoaderTrust, AWayThatChangesMeanwhileNeverLeadsToTheOther) {
  const auto open = directory_.path() / "open";
  std::filesystem::create_directory(open);
  allow(open, 01777);
  const auto other = open / "other.so";
  std::filesystem::copy_file(plugin("returns"), other);
  allow(other, 0666);
  const auto link = directory_.path() / "link.so";
  std::filesystem::create_symlink(path_, link);
  std::atomic<bool> over = false;
  std::thread swapper([&] {
    for (bool to_other = true; !over; to_other = !to_other) {
      std::filesystem::create_symlink(to_other ? other : path_, directory_.path() / "next.so");
      std::filesystem::rename(directory_.path() / "next.so", link);
    }
  });
  int loaded = 0;
  for (int start = 0; start < 200; ++start) {
    // The dynamic loader knows a name that it has seen, and does not look again.
    const std::string way = directory_.path().string() + std::string(static_cast<std::size_t>(start) + 1, '/');
    try {
      EXPECT_EQ(load(way + "link.so").name, "good");
      ++loaded;
    } catch (const LoadError& failure) {
      EXPECT_EQ(failure.stage(), LoadError::Stage::load);
      EXPECT_THAT(failure.what(), testing::HasSubstr("everyone can put another one there"));
    }
  }
  over = true;
  swapper.join();
  RecordProperty("loaded", loaded);
}

TEST(Loader, MissingInitIsNamed) { expect_refused(plugin("missing_init"), "it has no entry \"init\""); }

TEST(Loader, MissingSymbolIsNamedAsItsProgrammerWroteIt) {
  expect_refused(plugin("undefined_symbol"),
                 "this host does not have ac::future::operation(std::__cxx11::basic_string<char, "
                 "std::char_traits<char>, std::allocator<char> > const&, int), which it needs");
}

TEST(Loader, PluginWithoutAMainFunctionIsRefused) {
  expect_refused(plugin("no_run"), "its init set no main function (ac::Plugin::set_run)");
}

TEST(Loader, InitThatReturnsFalseGivesThePluginsText) {
  const auto outcome = failure_to_load(plugin("init_false"));
  EXPECT_EQ(outcome.stage, LoadError::Stage::start);
  EXPECT_EQ(outcome.text, "the plug-in " + plugin("init_false") +
                              " did not start: Error opening Serial Port: No such file or directory");
}

TEST(Loader, InitThatThrowsIsAFailureToStart) {
  const auto outcome = failure_to_load(plugin("init_throws"));
  EXPECT_EQ(outcome.stage, LoadError::Stage::start);
  EXPECT_EQ(outcome.text, "the plug-in " + plugin("init_throws") + " did not start: unknown exception");
}

TEST(Loader, MainFunctionThatReturnsIsReportedWithThePluginsName) {
  EXPECT_EQ(run_until_it_ends(load(plugin("returns"))), "the plug-in returns ended: its main function returned 5");
}

TEST(Loader, MainFunctionThatThrowsIsReportedWithThePluginsName) {
  EXPECT_EQ(run_until_it_ends(load(plugin("throws"))), "the plug-in throws ended: Empty reply; gpio: 9");
}

}  // namespace
}  // namespace refhost::test
