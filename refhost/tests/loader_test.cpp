#include "refhost/loader.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

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
